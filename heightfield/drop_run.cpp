// Worker threads of drops: start, priority, progress, end.
#include "heightfield/drop_run.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "core/messages.h"
#include "heightfield/drop_lanes.h"
#include "heightfield/drop_walk.h"

namespace {

constexpr std::chrono::milliseconds kPollInterval(10);

/// One step below the priority that the calling thread has.
void LowerPriority() {
  const auto self = static_cast<id_t>(syscall(SYS_gettid));
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, self);
  if (errno == 0) setpriority(PRIO_PROCESS, self, nice + 1);
  if (errno != 0) trOutWarning("SetThreadPriority failed (" + std::to_string(errno) + ")");
}

/// The workers of a run. The destructor stops and joins them.
class Crew {
 public:
  using Walk = bool(const DropField&, trMersenneTwister&, std::int64_t drops, DropWatch&);

  Crew(const DropField& field, Walk* walk, int workers, std::vector<trMersenneTwister>& generators,
       std::int64_t dropsEach, bool startStopped)
      : walk_(walk), stop_(startStopped), running_(workers) {
    for (int i = 0; i < workers; ++i) watches_.push_back(std::make_unique<DropWatch>(stop_));
    for (int i = 0; i < workers; ++i)
      threads_.emplace_back([this, &field, &generator = generators[i], &watch = *watches_[i], dropsEach] {
        Work(field, generator, dropsEach, watch);
      });
  }
  ~Crew() {
    Stop();
    for (std::thread& thread : threads_) thread.join();
  }
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  void Stop() { stop_.exchange(1); }
  bool IsStopped() const { return stop_.load() != 0; }

  /// Waits for the next poll; true when all workers have ended.
  bool WaitForEnd() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPollInterval, [&] { return running_ == 0; });
  }
  /// Of the worker that is least far; counters that have wrapped into the negative don't count.
  int Percent() const {
    int least = 100;
    for (const auto& watch : watches_) {
      const int percent = watch->percent.load(std::memory_order_relaxed);
      if (percent >= 0) least = std::min(least, percent);
    }
    return least;
  }
  /// Joins the workers in order and throws what one of them threw.
  void Finish() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    if (problem_) std::rethrow_exception(problem_);
  }

 private:
  void Work(const DropField& field, trMersenneTwister& generator, std::int64_t drops, DropWatch& watch) {
    try {
      LowerPriority();
      if (drops < 1 || walk_(field, generator, drops, watch)) watch.percent.exchange(100);
    } catch (...) {
      Stop();
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    --running_;
    changed_.notify_one();
  }

  Walk* const walk_;
  std::atomic<unsigned char> stop_;
  std::vector<std::unique_ptr<DropWatch>> watches_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int running_;
  std::exception_ptr problem_;
  std::vector<std::thread> threads_;
};

}  // namespace

bool RunDrops(const DropField& field, DropOrder order, int threads,
              std::vector<trMersenneTwister>& generators, std::int64_t drops, const DropReport& report) {
  const bool inOrder = order == DropOrder::kRepeatable;
  const int workers = inOrder ? 1 : threads;
  const auto walk = inOrder                    ? WalkDrops
                    : CanWalkSideBySide(field) ? WalkDropsSideBySide
                                               : WalkDropsAmongOthers;
  Crew crew(field, walk, workers, generators, drops / workers, !report(0));
  while (!crew.WaitForEnd())
    if (!report(static_cast<float>(crew.Percent()) * 0.01f)) crew.Stop();
  crew.Finish();
  if (crew.IsStopped()) return false;
  report(1);
  return true;
}
