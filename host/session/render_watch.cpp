// A thread that waits for points of time.
#include "host/session/render_watch.h"

#include <algorithm>
#include <system_error>

#include "core/messages.h"

namespace ovhost {
namespace {

/// Writing checkpoints takes no more than a fiftieth of the time.
constexpr double kLeastPeriodPerCost = 50;

std::chrono::steady_clock::time_point After(double seconds) {
  const std::chrono::duration<double> wait(std::clamp(seconds, 0.0, 1e8));
  return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::nanoseconds>(wait);
}

}  // namespace

RenderWatch::RenderWatch(RenderControl& control, double timeLimit, double checkpointPeriod)
    : control_(control), period_(checkpointPeriod) {
  if (timeLimit > 0) end_ = After(timeLimit);
  if (period_ > 0) next_ = After(period_);
  if (timeLimit <= 0 && period_ <= 0) return;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    trWarning(
        "No thread can be started to watch the time: the time limit and checkpoints on the way don't count.");
  }
}

RenderWatch::~RenderWatch() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void RenderWatch::RestartCheckpoints(double cost) {
  {
    const std::lock_guard lock(mutex_);
    next_ = After(std::max(period_, cost * kLeastPeriodPerCost));
  }
  changed_.notify_all();
}

void RenderWatch::Run() {
  std::unique_lock lock(mutex_);
  while (!isOver_) {
    const Clock::time_point now = Clock::now();
    if (now >= end_) {
      control_.timeUp = true;
      control_.stop = true;
      return;
    }
    if (now >= next_) {
      next_ = Clock::time_point::max();
      isDue_ = true;
      control_.pause = true;
    }
    // A wait for the end of all time overflows in some libraries.
    changed_.wait_until(lock, std::min({end_, next_, now + std::chrono::hours(1)}));
  }
}

}  // namespace ovhost
