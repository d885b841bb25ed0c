// Half-precision floats (IEEE 754 binary16).
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace ovhost {

inline float FloatFromHalf(std::uint16_t half) {
  const std::uint32_t sign = (half & 0x8000u) << 16, exponent = (half >> 10) & 31u, mantissa = half & 1023u;
  if (exponent == 31) return std::bit_cast<float>(sign | 0x7f800000u | mantissa << 13);
  if (exponent) return std::bit_cast<float>(sign | (exponent + 112) << 23 | mantissa << 13);
  const float magnitude = static_cast<float>(mantissa) * 0x1p-24f;
  return sign ? -magnitude : magnitude;
}

constexpr float kGreatestHalf = 65504.0f;

/// The nearest number that a half holds, were there no limit to its size.
inline float RoundedToHalf(float value) {
  if (!std::isfinite(value) || value == 0) return value;
  constexpr int kLeastExponent = -14, kPlaces = 10;
  const float unit = std::ldexp(1.0f, std::max(std::ilogb(value), kLeastExponent) - kPlaces);
  return std::nearbyint(value / unit) * unit;
}

}  // namespace ovhost
