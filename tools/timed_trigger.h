// timed_trigger: isn't zero at most once in a while, whoever asks.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/shader.h"

class TimedTrigger : public trFunction {
 public:
  TimedTrigger();
  float FloatValue(trShadingInterface& si) override;
  trFCol FColValue(trShadingInterface& si) override;
  trVector VectorValue(trShadingInterface& si) override;

 private:
  /// Whether the delay is over; of threads that ask at once, one is told so.
  bool Triggers();

  double delay_;  ///< seconds
  /// Of the monotonic clock, milliseconds; at first so long ago that any delay is over.
  std::atomic<std::int64_t> lastTime_;
};
