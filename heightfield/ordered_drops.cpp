// The threads of a walk in order, and when there is one.
#include "heightfield/ordered_drops.h"

#include "heightfield/drop_lanes.h"
#include "heightfield/ordered_walker.h"
#include "heightfield/thread_priority.h"

#ifdef OV_FOUR_LANES

#include <exception>
#include <mutex>

namespace {

template <BorderFlow kBorder, bool kNearest>
bool WalkAll(const DropField& field, int threads, trMersenneTwister& generator, std::int64_t drops,
             DropWatch& watch) {
  OrderedRun run(field, generator, drops, threads);
  std::mutex mutex;
  std::exception_ptr problem;
  const auto work = [&](int thread) {
    try {
      OrderedWalker<kBorder, kNearest>(run, thread).Run([&] {
        if (thread == 0) watch.Report(run.walked.load(std::memory_order_relaxed), drops);
        if (watch.MustStop()) run.mustEnd = true;
      });
    } catch (...) {
      run.mustEnd = true;
      const std::lock_guard lock(mutex);
      if (!problem) problem = std::current_exception();
    }
  };
  std::vector<std::thread> helpers;
  try {
    helpers.reserve(threads);
    for (int i = 1; i < threads; ++i)
      helpers.emplace_back([&work, i] {
        LowerThreadPriority();
        work(i);
      });
  } catch (const std::exception&) {
    // Fewer than wished for do it as well.
  }
  work(0);
  for (std::thread& helper : helpers) helper.join();
  if (problem) std::rethrow_exception(problem);
  return !run.mustEnd;
}

/// Beyond this, sums of squares may overflow and heights be no numbers any more.
constexpr double kMostHeight = 1e30, kMostDiffusion = 1e100;

bool IsTame(const DropField& field) {
  const std::int64_t points = std::int64_t{field.width} * field.height;
  std::int64_t wild = 0;
  for (std::int64_t i = 0; i < points; ++i)
    wild += !(std::fabs(field.heights[i]) <= static_cast<float>(kMostHeight));
  return wild == 0;
}

}  // namespace

bool CanWalkInOrder(const DropField& field) {
  constexpr int kLeastPoints = 64;
  const DropSettings& s = field.settings;
  const auto isUpTo = [](double v, double most) { return v >= 0 && v <= most; };
  return CanWalkSideBySide(field) && std::min(field.width, field.height) >= kLeastPoints &&
         s.flowDistance >= 1 && s.flowDistance <= DropStream::kMostFlowDistance &&
         isUpTo(s.erosionPower, kMostHeight) && isUpTo(s.deposition, kMostHeight) &&
         isUpTo(std::fabs(s.depositionRate), kMostHeight) && isUpTo(std::fabs(s.diffusion), kMostDiffusion) &&
         IsTame(field);
}

int ThreadsInOrder(const DropField& field, int cores) {
  // Measured: on 200 by 200 points one thread ahead of turn is as fast as the serial walk, and with drops of
  // a middling length of 5 steps.
  constexpr std::int64_t kLeastPoints = 1 << 16, kPointsOfThread = 1 << 17;
  constexpr double kLeastFlowDistance = 5;
  const std::int64_t points = std::int64_t{field.width} * field.height;
  if (points < kLeastPoints || field.settings.flowDistance < kLeastFlowDistance) return 0;
  return static_cast<int>(std::clamp<std::int64_t>(points / kPointsOfThread, 1, std::max(1, cores)));
}

bool WalkDropsInOrder(const DropField& field, int threads, trMersenneTwister& generator, std::int64_t drops,
                      DropWatch& watch) {
  constexpr int kMostThreads = 64;
  const int number = field.settings.border == BorderFlow::kAround ? std::clamp(threads, 1, kMostThreads) : 1;
  return ForDropKind(field.settings, [&]<BorderFlow kBorder, bool kNearest>() {
    return WalkAll<kBorder, kNearest>(field, number, generator, drops, watch);
  });
}

#else

bool CanWalkInOrder(const DropField&) { return false; }
int ThreadsInOrder(const DropField&, int) { return 0; }
bool WalkDropsInOrder(const DropField& field, int, trMersenneTwister& generator, std::int64_t drops,
                      DropWatch& watch) {
  return WalkDrops(field, generator, drops, watch);
}

#endif
