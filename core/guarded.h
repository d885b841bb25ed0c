// Arithmetic that can't divide by zero, and the small curves that masks share.
#pragma once

#include <algorithm>
#include <cmath>

#include "core/colour.h"
#include "core/noise.h"

inline constexpr double kDegreesToRadians = 0.017453292519943278;
inline constexpr double kRadiansToDegrees = 57.29577951308238;

/// Reciprocal of a user value: 1e12 with the sign of x for magnitudes up to 1e-12, zero counting as positive.
inline double SafeReciprocal(double x) {
  if (std::fabs(x) > 1e-12) return 1.0 / x;
  return x < 0 ? -1e12 : 1e12;
}

/// A denominator of magnitude at least 1e-12, keeping its sign.
inline double GuardedDenominator(double d) {
  if (std::fabs(d) > 1e-12) return d;
  return d < 0 ? -1e-12 : 1e-12;
}
inline float GuardedDenominator(float d) {
  if (std::fabs(d) > 1e-6f) return d;
  return d < 0 ? -1e-6f : 1e-6f;
}
inline double GuardedDivide(double n, double d) { return n / GuardedDenominator(d); }
inline float GuardedDivide(float n, float d) { return n / GuardedDenominator(d); }

/// What a shader takes from others before it computes on: NaN counts as 0, and magnitudes end at 1e12, so
/// that products of a few colours stay finite.
inline float Tamed(float x) { return std::fabs(x) <= 1e12f ? x : x > 0 ? 1e12f : x < 0 ? -1e12f : 0.0f; }
inline trFCol Tamed(const trFCol& c) { return {Tamed(c.r), Tamed(c.g), Tamed(c.b)}; }

/// (3 - 2t) t^2 on t clamped to 0 to 1.
inline double SmoothStep(double t) {
  t = std::clamp(t, 0.0, 1.0);
  return (3.0 - 2.0 * t) * t * t;
}

/// 1 / (1 + exp(-x)), x clamped to plus and minus 50.
inline double Logistic(double x) { return 1.0 / (1.0 + trFastExp()(-std::clamp(x, -50.0, 50.0))); }
