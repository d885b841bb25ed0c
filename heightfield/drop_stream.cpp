// Dealing drops out in their order.
#include "heightfield/drop_stream.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "heightfield/drop_math.h"
#include "heightfield/drop_numbers.h"

namespace {

/// Held for less than a microsecond by far most, so that waiting threads look again rather than sleep.
class SpinGuard {
 public:
  explicit SpinGuard(std::atomic_flag& flag) : flag_(flag) {
    for (int looks = 0; flag_.test_and_set(std::memory_order_acquire); ++looks)
      if (looks > 100) std::this_thread::yield();
  }
  ~SpinGuard() { flag_.clear(std::memory_order_release); }
  SpinGuard(const SpinGuard&) = delete;
  SpinGuard& operator=(const SpinGuard&) = delete;

 private:
  std::atomic_flag& flag_;
};

}  // namespace

DropStream::DropStream(const DropField& field, trMersenneTwister& generator, std::int64_t drops)
    : field_(field), generator_(generator), drops_(drops), ring_(new unsigned int[kRing + 4]) {
  static_assert(kRing % kBatch == 0);
}

DropStream::Result DropStream::Take(std::int64_t committed, StreamedDrop& drop) {
  const SpinGuard guard(lock_);
  for (; index_ < drops_; ++index_) {
    if (order_ - committed >= kMostAhead) return Result::kWait;
    Produce(next_ + 3);
    const int steps = StepCount(Unit(next_ + 2), field_.settings.flowDistance);
    const std::int64_t numbers = next_ + 3, end = numbers + std::int64_t{4} * std::max(0, steps);
    // No number is overwritten that a drop under way may read.
    const std::int64_t oldest = committed < order_ ? firstNumbers_[committed % kMostAhead] : next_;
    if (end + 3 + kBatch - oldest > kRing) return Result::kWait;
    const std::int64_t first = next_;
    next_ = end;
    if (steps <= 0) continue;
    Produce(end);
    firstNumbers_[order_ % kMostAhead] = numbers;
    drop = {order_,
            index_,
            numbers,
            StartCell(Unit(first), field_.width),
            StartCell(Unit(first + 1), field_.height),
            steps};
    ++order_;
    ++index_;
    return Result::kDrop;
  }
  return Result::kEnd;
}

void DropStream::GoBack(const StreamedDrop& drop, int steps) {
  order_ = drop.order + 1;
  index_ = drop.index + 1;
  next_ = drop.numbers + std::int64_t{4} * steps;
}

void DropStream::Produce(std::int64_t end) {
  for (; produced_ < end; produced_ += kBatch) {
    const std::int64_t at = produced_ & (kRing - 1);
    generator_.Draw(&ring_[at], kBatch);
    if (at == 0) std::memcpy(&ring_[kRing], &ring_[0], 4 * sizeof ring_[0]);
  }
}

double DropStream::Unit(std::int64_t place) const { return UnitDraw(*Numbers(place)); }
