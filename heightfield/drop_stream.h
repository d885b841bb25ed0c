// The drops of a run in their order, each with the numbers that it draws, for threads that walk ahead.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "core/random.h"
#include "heightfield/drop_settings.h"

/// A drop before its first step.
struct StreamedDrop {
  std::int64_t order = 0;    ///< among the drops that take a step
  std::int64_t index = 0;    ///< among all
  std::int64_t numbers = 0;  ///< where its numbers begin in the generator's sequence, four for each step
  int x = 0, y = 0, steps = 0;
};

/// Deals out drops as the serial walk would meet them. A drop that takes all its steps draws 3 + 4 steps
/// numbers, so that the next ones are known before it has walked. Thread-safe but for GoBack.
class DropStream {
 public:
  /// Up to this, the numbers of the longest drop are at hand all at once.
  static constexpr double kMostFlowDistance = 8000;

  DropStream(const DropField& field, trMersenneTwister& generator, std::int64_t drops);

  enum class Result { kDrop, kWait, kEnd };
  /// The next drop; none while too many drops are under way, the first `committed` in order being over.
  Result Take(std::int64_t committed, StreamedDrop& drop);

  /// `drop` has ended after `steps` steps: all later drops will be dealt anew, from the numbers behind it.
  /// One thread at a time.
  void GoBack(const StreamedDrop& drop, int steps);

  /// Four raw numbers, from a place in the sequence where a drop under way has some.
  const unsigned int* Numbers(std::int64_t place) const { return &ring_[place & (kRing - 1)]; }

 private:
  /// Drops run ahead of the first unfinished one by no more than this: on average a long drop, ten times the
  /// mean, is over before so many have walked, and less of their work is for nothing.
  static constexpr std::int64_t kMostAhead = 256;
  static constexpr std::int64_t kRing = 1 << 20;
  static constexpr int kBatch = 1024;

  void Produce(std::int64_t end);
  double Unit(std::int64_t place) const;

  const DropField field_;
  trMersenneTwister& generator_;
  const std::int64_t drops_;
  std::int64_t order_ = 0, index_ = 0;     ///< of the next drop
  std::int64_t next_ = 0, produced_ = 0;   ///< places in the sequence
  std::int64_t firstNumbers_[kMostAhead];  ///< of the drops under way, by order
  std::unique_ptr<unsigned int[]> ring_;   ///< with a copy of its first four behind it
  alignas(64) std::atomic_flag lock_;
};
