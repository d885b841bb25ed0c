// One frame, from project to picture file: a render job, its pictures on the way, and its checkpoints.
#include "host/session/render_frame.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <vector>

#include "core/messages.h"
#include "host/base/plain_file.h"
#include "host/image/picture.h"
#include "host/node/node_data.h"
#include "host/render/frame/render_job.h"
#include "host/session/checkpoint.h"
#include "host/session/render_watch.h"

namespace ovhost {
namespace {

/// Seconds between pictures written while a render goes on.
constexpr double kSecondsBetweenWrites = 3;
/// Seconds of work for one of writing, at least: large pictures take long.
constexpr double kWorkPerWrite = 10;
/// What a finished picture says, in the description that all formats have.
constexpr char kFinished[] = "ov:finished=yes", kUnfinished[] = "ov:finished=no";

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The render in hand.
class FrameRender {
 public:
  FrameRender(juProject& project, const RenderSettings& settings, RenderControl& control)
      : settings_(settings),
        control_(control),
        checkpoint_(CheckpointPath(settings.output)),
        start_(Seconds()),
        job_(project, settings, control),
        watch_(control, settings.timeLimitSeconds, settings.checkpointSeconds.value_or(0)) {}

  RenderOutcome Run();
  RenderStatistics Statistics() const {
    RenderStatistics statistics = job_.Statistics();
    statistics.firstPictureSeconds = firstPicture_;
    return statistics;
  }

 private:
  /// Goes on from a checkpoint where there is one. False where there must be one and isn't.
  bool TakeUp();
  RenderOutcome RunPasses();
  /// What is to be written while the render goes on. False where the picture can't be.
  bool WriteOnTheWay();
  RenderOutcome Finish();
  RenderOutcome EndEarly();
  std::string WriteCheckpointNow();
  std::string WriteOutput(bool isFinished);
  bool HasPicture() const { return job_.Statistics().samplesDone > 0; }

  const RenderSettings& settings_;
  RenderControl& control_;
  const std::string checkpoint_;
  const double start_;
  RenderJob job_;
  RenderWatch watch_;
  double firstPicture_ = 0, lastWrite_ = 0, writeSeconds_ = 0;
  int samplesWritten_ = 0;  ///< of the picture written last
};

RenderOutcome FrameRender::Run() {
  // What can't be written is better known before the work than after it.
  if (const std::string problem = LoadPictureEncoder(); !problem.empty())
    return trError(settings_.output + ": " + problem), RenderOutcome::kOutputFailed;
  if (!TakeUp()) return RenderOutcome::kFailed;
  RenderOutcome outcome = job_.Prepare();
  if (outcome == RenderOutcome::kDone) outcome = RunPasses();
  if (outcome == RenderOutcome::kDone) return Finish();
  if (outcome == RenderOutcome::kStopped) return EndEarly();
  // Something failed, but not what was done before.
  if (HasPicture())
    if (const std::string problem = WriteCheckpointNow(); !problem.empty()) trError(problem);
  return outcome;
}

bool FrameRender::TakeUp() {
  if (settings_.resume == ResumeMode::kNever) return true;
  const CheckpointState state = ReadCheckpoint(checkpoint_, job_);
  if (state == CheckpointState::kOther)
    trWarning(checkpoint_ + ": belongs to another project, frame or program; what it holds isn't used");
  if (state == CheckpointState::kDamaged) trWarning(checkpoint_ + ": is damaged; what it holds isn't used");
  if (state == CheckpointState::kLoaded) {
    const int samples = job_.Statistics().samplesDone;
    trPrintMessage(settings_.output + ": goes on from its checkpoint, with " + std::to_string(samples) +
                   (samples == 1 ? " sample" : " samples") + " a pixel done");
  }
  if (state == CheckpointState::kLoaded || settings_.resume != ResumeMode::kRequire) return true;
  trError("There is no checkpoint to go on from.");
  return false;
}

RenderOutcome FrameRender::RunPasses() {
  while (!job_.IsDone()) {
    const RenderOutcome outcome = job_.RunPass();
    control_.pause = false;
    if (job_.IsDone()) break;
    if (outcome != RenderOutcome::kDone) return outcome;
    if (!WriteOnTheWay()) return RenderOutcome::kOutputFailed;
  }
  return RenderOutcome::kDone;
}

bool FrameRender::WriteOnTheWay() {
  const bool isEachPass = settings_.checkpointSeconds == 0.0;
  if (isEachPass || watch_.TakeCheckpointDue()) {
    const double start = Seconds();
    if (const std::string problem = WriteCheckpointNow(); !problem.empty()) trWarning(problem);
    if (!isEachPass) watch_.RestartCheckpoints(Seconds() - start);
  }
  const int samples = job_.Statistics().samplesDone;
  if (samples == 0) return true;
  if (control_.writeNow.exchange(false)) {
    if (const std::string problem = WriteOutput(false); !problem.empty()) trWarning(problem);
  } else if (settings_.writeEveryPass && samples > samplesWritten_ &&
             (samplesWritten_ == 0 ||
              Seconds() - lastWrite_ > std::max(kSecondsBetweenWrites, kWorkPerWrite * writeSeconds_))) {
    if (const std::string problem = WriteOutput(false); !problem.empty()) return trError(problem), false;
  }
  return true;
}

RenderOutcome FrameRender::Finish() {
  if (const std::string problem = WriteOutput(true); !problem.empty()) {
    trError(problem);
    // The work of hours isn't lost with a full disc.
    if (const std::string also = WriteCheckpointNow(); !also.empty()) trError(also);
    return RenderOutcome::kOutputFailed;
  }
  if (!job_.HasMoreThanAsked())
    RemoveCheckpoint(checkpoint_, job_);
  else if (std::error_code error; std::filesystem::exists(checkpoint_, error))
    trPrintMessage(checkpoint_ + ": holds more samples than were asked for, and is kept");
  return RenderOutcome::kDone;
}

RenderOutcome FrameRender::EndEarly() {
  const bool isTimeUp = control_.timeUp && !control_.cancelled;
  const std::string problem = WriteCheckpointNow();
  const std::string pictureProblem = HasPicture() ? WriteOutput(false) : "";
  if (!problem.empty()) trError(problem);
  if (!pictureProblem.empty()) trError(pictureProblem);
  if (!problem.empty() || (isTimeUp && !pictureProblem.empty())) return RenderOutcome::kOutputFailed;
  return isTimeUp ? RenderOutcome::kTimeLimit : RenderOutcome::kStopped;
}

std::string FrameRender::WriteCheckpointNow() { return WriteCheckpoint(checkpoint_, job_); }

std::string FrameRender::WriteOutput(bool isFinished) {
  Picture picture = job_.Image();
  const int samples = job_.Statistics().samplesDone;
  picture.metadata = {{"Software", std::string("ovstd ") + OV_VERSION},
                      {"DateTime", settings_.sceneTime},
                      {"ImageDescription", isFinished ? kFinished : kUnfinished},
                      {"ov:scene", settings_.sceneName},
                      {"ov:frame", ValueToText(trParamValue(settings_.frame))},
                      {"ov:samples", std::to_string(samples)},
                      {"ov:seed", std::to_string(settings_.seed)}};
  lastWrite_ = Seconds();
  samplesWritten_ = samples;
  const DeepPixels* const deep = job_.Deep();
  std::string problem = deep ? WriteDeepPicture(settings_.output, picture, *deep)
                             : WritePicture(settings_.output, picture, job_.Transform());
  if (firstPicture_ == 0) firstPicture_ = Seconds() - start_;
  writeSeconds_ = Seconds() - lastWrite_;
  return problem;
}

}  // namespace

RenderOutcome RenderFrame(juProject& project, const RenderSettings& settings, RenderControl& control,
                          RenderStatistics* statistics) {
  RenderOutcome outcome = RenderOutcome::kFailed;
  {
    FrameRender render(project, settings, control);
    try {
      outcome = render.Run();
    } catch (const std::exception& problem) {
      outcome = ReportFailure(problem);
    }
    if (statistics) *statistics = render.Statistics();
  }
  // The time was this frame's own.
  if (control.timeUp.exchange(false)) {
    control.stop = false;
    if (control.cancelled) control.stop = true;
  }
  return outcome;
}

bool IsFinishedPicture(const std::string& path) {
  std::error_code error;
  if (std::filesystem::symlink_status(CheckpointPath(path), error).type() !=
      std::filesystem::file_type::not_found)
    return false;
  PlainFile file(path);
  constexpr size_t kMark = sizeof kFinished - 1, kChunk = 1 << 20;
  std::vector<char> bytes(kMark + kChunk);
  size_t held = 0;
  while (const size_t got = file.ReadSome(bytes.data() + held, kChunk)) {
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(held + got);
    if (std::search(bytes.begin(), end, kFinished, kFinished + kMark) != end) return true;
    // The mark may lie across two chunks.
    held = std::min(held + got, kMark - 1);
    std::copy(end - static_cast<std::ptrdiff_t>(held), end, bytes.begin());
  }
  return false;
}

}  // namespace ovhost
