// Progress on stderr, throttled to what a reader or a log can take.
#include "app/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "app/json.h"
#include "app/units.h"
#include "host/base/log_text.h"

namespace ovapp {
namespace {

constexpr double kBarPeriod = 0.1;      // seconds between two states of the bar
constexpr double kLinePeriod = 1.0;     // shortest time between two lines
constexpr double kLongestSilence = 30;  // a line comes at least this often
constexpr int kLineStep = 5;            // percent that make a line worth its place
constexpr int kBarWidth = 30;
constexpr size_t kLongestText = 200;  // bytes

double Seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Progress::Progress(const CommonOptions& options, const std::atomic<bool>* stop) : stop_(stop) {
  if (options.progress == "json")
    form_ = Form::kJson;
  else if (options.quiet || options.progress == "none")
    form_ = Form::kNone;
  else if (options.progress == "lines" || (options.progress == "auto" && !isatty(STDERR_FILENO)))
    form_ = Form::kLines;
  else
    form_ = Form::kBar;
  start_ = lastShown_ = Clock::now();
  ovhost::SetProgressSink(Receive, this);
}

Progress::~Progress() {
  ovhost::SetProgressSink(nullptr, nullptr);
  ClearBar();
}

void Progress::SetPart(const std::string& label, size_t index, size_t count) {
  const std::lock_guard lock(mutex_);
  label_ = label;
  part_ = index;
  parts_ = std::max<size_t>(count, 1);
  stages_.clear();
  figure_ = 0;
}

void Progress::SetStages(std::vector<Stage> stages) {
  const std::lock_guard lock(mutex_);
  stages_ = std::move(stages);
  stage_ = 0;
  figure_ = 0;
}

void Progress::NextStage() {
  const std::lock_guard lock(mutex_);
  while (stage_ < stages_.size() && stages_[stage_].node) ++stage_;
  ++stage_;
}

size_t Progress::StageOf(const trBase* node) const {
  for (size_t i = 0; i < stages_.size(); ++i)
    if (stages_[i].node == node) return i;
  return node->IsTrue("is_render") ? stages_.size() - 1 : stages_.size();
}

double Progress::Figure(size_t index, double fraction) {
  if (stages_.empty()) return fraction;
  double before = 0, all = 0;
  for (size_t i = 0; i < stages_.size(); ++i) {
    if (i < index) before += stages_[i].weight;
    all += stages_[i].weight;
  }
  // A render tells that it begins before what it needs is made.
  if (index < stages_.size() && fraction > 0)
    figure_ = std::max(figure_, (before + fraction * stages_[index].weight) / all);
  return figure_;
}

void Progress::Report(const std::string& text, double fraction) {
  const std::lock_guard lock(mutex_);
  Show(text, Figure(std::max<size_t>(stage_, 1) - 1, std::clamp(fraction, 0.0, 1.0)), -1);
}

void Progress::Pause() {
  const std::lock_guard lock(mutex_);
  ClearBar();
}

void Progress::ClearBar() {
  if (hasBar_) std::fputs("\r\033[K", stderr);
  hasBar_ = false;
}

bool Progress::Receive(void* self, const trBase* node, const trString& text, float fraction, float remaining,
                       bool) {
  auto* progress = static_cast<Progress*>(self);
  const std::lock_guard lock(progress->mutex_);
  const size_t stage = progress->StageOf(node);
  const bool isLast = stage + 1 >= progress->stages_.size();
  progress->Show(text, progress->Figure(stage, std::clamp(static_cast<double>(fraction), 0.0, 1.0)),
                 isLast ? remaining : -1);
  return !progress->stop_ || !*progress->stop_;
}

void Progress::Show(const std::string& text, double fraction, double remaining) {
  if (form_ == Form::kNone) return;
  // Parts are taken for equally long; the first reports of a job say nothing about its end.
  const Clock::time_point now = Clock::now();
  const double whole = (static_cast<double>(part_) + fraction) / static_cast<double>(parts_);
  const double elapsed = Seconds(now - start_);
  double left = remaining >= 0 && part_ + 1 == parts_ ? remaining : -1;
  if (left < 0 && whole > 0.01) left = elapsed * (1 - whole) / whole;

  const int percent = static_cast<int>(whole * 100);
  const double silence = Seconds(now - lastShown_);
  const bool isDue =
      form_ == Form::kBar
          ? silence >= kBarPeriod
          : silence >= kLongestSilence || (silence >= kLinePeriod && percent - lastPercent_ >= kLineStep);
  if (!isDue) return;
  lastShown_ = now;
  lastPercent_ = percent;

  const std::string what = label_.empty() ? text : text.empty() ? label_ : label_ + ": " + text;
  if (form_ == Form::kJson) {
    Json line = {{"progress", whole}, {"elapsed", elapsed}, {"text", what}};
    if (left >= 0) line["remaining"] = left;
    std::fputs(JsonText(line, -1).c_str(), stderr);
    return;
  }
  const std::string shown = ovhost::PrintableText(what, kLongestText);
  const std::string times =
      DurationText(elapsed) + (left >= 0 ? ", about " + DurationText(left) + " left" : "");
  if (form_ == Form::kLines) {
    std::fprintf(stderr, "%3d %%  %s  %s\n", percent, times.c_str(), shown.c_str());
    return;
  }
  const int filled = static_cast<int>(whole * kBarWidth);
  std::string bar(static_cast<size_t>(filled), '=');
  bar.resize(kBarWidth, ' ');
  std::fprintf(stderr, "\r\033[K[%s] %3d %%  %s  %s", bar.c_str(), percent, times.c_str(), shown.c_str());
  std::fflush(stderr);
  hasBar_ = true;
}

}  // namespace ovapp
