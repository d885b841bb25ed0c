// timed_trigger.
#include "tools/timed_trigger.h"

#include <chrono>

namespace {

/// Delays end here, a hundred million years, in milliseconds; the clock's zero is later than the negative of
/// it.
constexpr std::int64_t kLongestDelay = std::int64_t{1} << 61;

std::int64_t Now() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

TimedTrigger::TimedTrigger() : lastTime_(-2 * kLongestDelay) {
  Param(delay_, "delay", 1.0)
      .Display("Delay (seconds)")
      .About(
          "Least time from one value of 1 to the next, seconds; in between the value is 0. 0 triggers "
          "always.");
}

bool TimedTrigger::Triggers() {
  const double milliseconds = delay_ * 1000;
  const std::int64_t delay = milliseconds < static_cast<double>(kLongestDelay)
                                 ? static_cast<std::int64_t>(std::max(milliseconds, 0.0))
                                 : kLongestDelay;
  const std::int64_t now = Now();
  std::int64_t last = lastTime_.load();
  while (now - last >= delay)
    if (lastTime_.compare_exchange_weak(last, now)) return true;
  return false;
}

float TimedTrigger::FloatValue(trShadingInterface& si) {
  if (IsEnabled()) return Triggers() ? 1.0f : 0.0f;
  trShader* const input = InputShader();
  return input ? input->FloatValueTS(si) : 0.0f;
}

trFCol TimedTrigger::FColValue(trShadingInterface& si) {
  if (IsEnabled()) return trFCol(Triggers() ? 1.0f : 0.0f);
  trShader* const input = InputShader();
  return input ? input->FColValueTS(si) : trFCol();
}

trVector TimedTrigger::VectorValue(trShadingInterface& si) {
  if (IsEnabled()) return Triggers() ? trVector(1, 1, 1) : trVector();
  trShader* const input = InputShader();
  return input ? input->VectorValueTS(si) : trVector();
}
