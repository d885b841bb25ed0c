// Shows how far a long job is: a bar on a terminal, lines or JSON lines elsewhere.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "app/app.h"
#include "host/node/node_data.h"

namespace ovapp {

/// Takes the host's progress reports while it lives. The job is asked to stop once `stop` is set.
/// Thread-safe.
class Progress {
 public:
  Progress(const CommonOptions& options, const std::atomic<bool>* stop);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// The job is part `index` (from 0) of `count` equal parts, and `label` names the part.
  void SetPart(const std::string& label, size_t index, size_t count);
  /// The part in hand is done in stages that follow one another, each with its share of the figure: that of a
  /// node takes the node's reports, and the last one those of a render node. One without a node is begun by
  /// NextStage and takes Report. The figure never falls; what other nodes tell doesn't change it.
  struct Stage {
    const trBase* node = nullptr;
    double weight = 1;
  };
  void SetStages(std::vector<Stage> stages);
  void NextStage();
  /// Shows how far a job is that no node reports on.
  void Report(const std::string& text, double fraction);
  /// Clears the line for other output.
  void Pause();

 private:
  enum class Form { kNone, kBar, kLines, kJson };
  using Clock = std::chrono::steady_clock;

  static bool Receive(void* self, const trBase* node, const trString& text, float fraction, float remaining,
                      bool canAbort);
  void Show(const std::string& text, double fraction, double remaining);
  /// The part's figure, when stage `index` is at `fraction`.
  double Figure(size_t index, double fraction);
  size_t StageOf(const trBase* node) const;
  void ClearBar();

  Form form_ = Form::kNone;
  const std::atomic<bool>* stop_;
  std::mutex mutex_;
  std::string label_;
  size_t part_ = 0, parts_ = 1;
  std::vector<Stage> stages_;
  size_t stage_ = 0;  ///< one past the stage that NextStage began last
  double figure_ = 0;
  Clock::time_point start_, lastShown_;
  int lastPercent_ = -1;
  bool hasBar_ = false;
};

}  // namespace ovapp
