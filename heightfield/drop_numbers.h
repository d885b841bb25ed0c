// The random numbers of drops, drawn by the batch.
#pragma once

#include <cstring>

#include "core/random.h"

/// A raw number as a unit draw, the quotient by 2^32 - 1 in fewer cycles: its binary digits repeat with a
/// period of 32, and three periods round to what all of them do (checked for all 2^32 numbers).
inline double UnitDraw(unsigned int number) {
  const double wide = static_cast<double>(static_cast<int>(number ^ 0x80000000u)) + 2147483648.0;
  return wide * 0x1p-32 + wide * (0x1p-64 + 0x1p-96);
}

/// The sequence of a generator. Per-thread state.
class DropNumbers {
 public:
  /// Without `centres` there is no Four.
  explicit DropNumbers(trMersenneTwister& generator, bool centres = true)
      : generator_(generator), centres_(centres) {}

  /// The next unit draw.
  double Unit() {
    if (next_ == end_) Refill();
    return UnitDraw(raw_[next_++]);
  }
  /// The next four, each less a half; valid until the next call.
  const double* Four() {
    if (next_ + 4 > end_) [[unlikely]]
      Refill();
    const double* four = centred_ + next_;
    next_ += 4;
    return four;
  }
  /// The next `count`, at most kBatch, as they come from the generator; valid until the next call.
  const unsigned int* Raw(int count) {
    if (next_ + count > end_) [[unlikely]]
      Refill();
    const unsigned int* raw = raw_ + next_;
    next_ += count;
    return raw;
  }

  static constexpr int kBatch = 2 * 624;

 private:
  void Refill() {
    const int left = end_ - next_;
    std::memmove(raw_, raw_ + next_, left * sizeof *raw_);
    generator_.Draw(raw_ + left, kBatch);
    next_ = 0;
    end_ = left + kBatch;
    for (int i = 0; centres_ && i < end_; ++i) centred_[i] = UnitDraw(raw_[i]) - 0.5;
  }

  trMersenneTwister& generator_;
  const bool centres_;
  int next_ = 0, end_ = 0;
  unsigned int raw_[2 * kBatch];
  double centred_[2 * kBatch];
};
