// Glow of a medium round a light, in the modern and the old form.
#include "atmosphere/atmosphere_medium.h"

namespace atmosphere {

namespace {

/// x^-power; the usual power of 1 is a division.
float InversePower(float x, float power) { return power == 1.0f ? 1.0f / x : std::pow(x, -power); }

/// A falling power of the angle from the light's rim, levelled off at the rim.
float ImprovedGlow(float theta, bool glow, float radius, float amount, float power) {
  // A light without extent would have an infinitely bright centre.
  const float rim = glow ? std::max(radius, 1e-6f) : 1.0f;
  const float peak = InversePower(rim, power);
  float w = InversePower(std::max(1e-6f, theta - rim), power) / peak;
  if (w >= 1e-6f) w = 1.0f - std::exp(-w);
  const float m = peak * w;
  if (amount < 1.0f) return (m - 1.0f) * amount + 1.0f;
  if (m <= 0.0f) return 0.0f;
  return m < 1.0f ? std::pow(m, amount) : (m - 1.0f) * amount + 1.0f;
}

/// The first versions' glow. Without `glow` the saturated term isn't scaled back, which old pictures rely on.
float OldGlow(float theta, bool glow, float amount, float power) {
  if (amount == 0.0f) return 0.5f;  // the limit; the terms themselves are 0 / 0
  const float saturation = amount * 256.0f;
  const float angle = std::max(0.004363323f, theta);
  if (glow) return (1.0f - std::exp(-std::pow(amount / angle, power) / saturation)) * saturation + 0.5f;
  return 1.0f - std::exp(-amount / std::pow(angle, power) / saturation) + 0.5f;
}

}  // namespace

float GlowPhase(float cosAngle, bool glow, float radius, float amount, float power, bool improved) {
  const float theta = std::acos(std::clamp(cosAngle, -1.0f, 1.0f));
  const float phase =
      improved ? ImprovedGlow(theta, glow, radius, amount, power) : OldGlow(theta, glow, amount, power);
  if (std::isfinite(phase)) return phase;
  return improved ? 1.0f : 0.5f;
}

}  // namespace atmosphere
