// Bilinear drops, one after another: the walk that all faster ones agree with.
//
// A drop starts at a random point, takes unit steps downhill with some wander, takes ground away where it
// falls and lays it down where it runs out of slope, straight into the raster.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/random.h"
#include "heightfield/drop_settings.h"

/// How the walkers of a run and the thread that waits for them speak to each other. Thread-safe.
struct DropWatch {
  /// Drops walked, in percent of the worker's own; wraps for more than 21 million drops, into negative
  /// numbers too.
  std::atomic<std::int32_t> percent{0};
  const std::atomic<unsigned char>& stop;

  explicit DropWatch(const std::atomic<unsigned char>& stopFlag) : stop(stopFlag) {}
  bool MustStop() const { return stop.load(std::memory_order_relaxed) != 0; }
  void Report(std::int64_t walked, std::int64_t drops) {
    const auto counter = static_cast<std::int32_t>(static_cast<std::uint32_t>(walked) * 100u);
    percent.store(static_cast<std::int32_t>(counter / drops), std::memory_order_relaxed);
  }
};

/// Walks `drops` drops, one after another, with numbers from `generator`. Stops within 50 steps when asked
/// to, and leaves what was done. False when it was stopped. The raster is this thread's own meanwhile.
bool WalkDrops(const DropField& field, trMersenneTwister& generator, std::int64_t drops, DropWatch& watch);

/// The same on a raster that other threads walk on too, without locks: an update may be lost where two drops
/// meet, and nothing else comes of it. All accesses are relaxed atomic ones.
bool WalkDropsAmongOthers(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
                          DropWatch& watch);
