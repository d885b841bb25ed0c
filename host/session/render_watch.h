// The clock of a render: what has to happen after some time, whatever the render is at.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/render/frame/render_settings.h"

namespace ovhost {

/// While it lives, a thread of its own tells `control` when the time is up, and when a checkpoint is due.
/// Main thread only.
class RenderWatch {
 public:
  /// Seconds from now; 0 for never.
  RenderWatch(RenderControl& control, double timeLimit, double checkpointPeriod);
  ~RenderWatch();
  RenderWatch(const RenderWatch&) = delete;
  RenderWatch& operator=(const RenderWatch&) = delete;

  /// Whether a checkpoint is due; the next is so a period after RestartCheckpoints.
  bool TakeCheckpointDue() { return isDue_.exchange(false); }
  /// `cost` are the seconds that writing one takes: it shall be a small share of the time.
  void RestartCheckpoints(double cost);

 private:
  using Clock = std::chrono::steady_clock;
  void Run();

  RenderControl& control_;
  const double period_;
  Clock::time_point end_ = Clock::time_point::max(), next_ = Clock::time_point::max();
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOver_ = false;
  std::atomic<bool> isDue_{false};
  std::thread thread_;
};

}  // namespace ovhost
