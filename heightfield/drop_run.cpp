// Worker threads of drops: start, priority, progress, end.
#include "heightfield/drop_run.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "heightfield/drop_lanes.h"
#include "heightfield/drop_walk.h"
#include "heightfield/ordered_drops.h"
#include "heightfield/thread_priority.h"

namespace {

constexpr std::chrono::milliseconds kPollInterval(10);

/// The workers of a run. The destructor stops and joins them.
class Crew {
 public:
  using Walk = std::function<bool(trMersenneTwister& generator, std::int64_t drops, DropWatch& watch)>;

  Crew(const Walk& walk, int workers, std::vector<trMersenneTwister>& generators, std::int64_t dropsEach,
       bool startStopped)
      : Crew(walk, workers, startStopped) {  // whole from here on: its destructor joins what has started
    for (int i = 0; i < workers; ++i) watches_.push_back(std::make_unique<DropWatch>(stop_));
    for (int i = 0; i < workers; ++i)
      threads_.emplace_back([this, &generator = generators[i], &watch = *watches_[i], dropsEach] {
        Work(generator, dropsEach, watch);
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
  Crew(const Walk& walk, int workers, bool startStopped)
      : walk_(walk), stop_(startStopped), running_(workers) {}

  void Work(trMersenneTwister& generator, std::int64_t drops, DropWatch& watch) {
    try {
      LowerThreadPriority();
      if (drops < 1 || walk_(generator, drops, watch)) watch.percent.exchange(100);
    } catch (...) {
      Stop();
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    --running_;
    changed_.notify_one();
  }

  const Walk walk_;
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
  const Crew::Walk repeatable = [&](trMersenneTwister& generator, std::int64_t count, DropWatch& watch) {
    const int ahead = ThreadsInOrder(field, threads);
    return ahead > 0 && CanWalkInOrder(field) ? WalkDropsInOrder(field, ahead, generator, count, watch)
                                              : WalkDrops(field, generator, count, watch);
  };
  const Crew::Walk any = [&](trMersenneTwister& generator, std::int64_t count, DropWatch& watch) {
    return CanWalkSideBySide(field) ? WalkDropsSideBySide(field, generator, count, watch)
                                    : WalkDropsAmongOthers(field, generator, count, watch);
  };
  // One worker alone is the repeatable walk, whose drops come in the same order from the same generator.
  const bool isRepeatable = order == DropOrder::kRepeatable || threads == 1;
  const int workers = isRepeatable ? 1 : threads;
  Crew crew(isRepeatable ? repeatable : any, workers, generators, drops / workers, !report(0));
  while (!crew.WaitForEnd())
    if (!report(static_cast<float>(crew.Percent()) * 0.01f)) crew.Stop();
  crew.Finish();
  if (crew.IsStopped()) return false;
  report(1);
  return true;
}
