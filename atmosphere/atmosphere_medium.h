// The formulas of the air: phase functions, density profiles, transmittance and the ozone band. Pure
// functions.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "core/noise.h"

namespace atmosphere {

/// Extinctions are set in units of 1e-5 per metre.
inline constexpr double kPerMetre = 1e-5;

/// Brightness of a medium against an even glow, at the angle whose cosine is given (1 looks into the light).
/// `radius` is the light's apparent radius in radians: the glow is flat inside it. Always finite.
float GlowPhase(float cosAngle, bool glow, float radius, float amount, float power, bool improved);

/// Rayleigh's phase function, averaging 1 over the sphere.
inline double RayleighPhase(double cosAngle) { return 0.75 * (cosAngle * cosAngle + 1.0); }

// Exponentials of two numbers at a time: every x86-64 has the registers, and the media take five of them a
// sample. By hand, not through Highway: vectors of its static target are single numbers on plain x86-64,
// which made samples 1.4 times as dear (bench/atmosphere_bench).

using Pair = double __attribute__((vector_size(16)));
using PairBits = std::int64_t __attribute__((vector_size(16)));

inline Pair Both(double x) { return Pair{x, x}; }
/// Bounded below and above; what isn't a number becomes the lower bound.
inline Pair Clamped(Pair x, double low, double high) {
  x = x > Both(low) ? x : Both(low);
  return x < Both(high) ? x : Both(high);
}

/// trFastExp between its limits, to the same bits.
inline Pair ExpInRange(Pair x) {
  const Pair shifted = x * trFastExp::kLog2E + trFastExp::kRound;
  const Pair r = x - (shifted - trFastExp::kRound) * trFastExp::kLn2;
  Pair p = Both(trFastExp::kPolynomial[5]);
  for (int i = 4; i >= 0; --i) p = p * r + trFastExp::kPolynomial[i];
  return (Pair)((PairBits)(p * r + 1.0) + ((PairBits)shifted << 52));
}

/// exp(x) for a mean density: nothing below e^x = 1e-6, bounded at 1e6.
inline Pair DensityExp(Pair x) {
  constexpr double kLog1e6 = 13.815510749816895;
  const Pair e = ExpInRange(Clamped(x, -kLog1e6, kLog1e6));
  const Pair kept = e > Both(9.999999974752427e-7) ? e : Both(0.0);
  return x < Both(-kLog1e6) ? Both(0.0) : x > Both(kLog1e6) ? Both(1000000.0025247573) : kept;
}

/// exp(x) to a few percent, from the bits of the exponent (Schraudolph, A Fast, Compact Approximation of the
/// Exponential Function, 1999). For segments so level that their densities hardly differ.
inline Pair CoarseExp(Pair x) {
  const Pair high = Clamped(x, -20.0, 20.0) * 1512775.3951951822 + 1072632447.0;
  const Pair e = (Pair)(__builtin_convertvector(high, PairBits) << 32);
  return x > Both(20.0) ? Both(482087424.0) : x >= Both(-20.0) ? e : Both(0.0);
}

/// exp(-t), with the error of the fast exponential taken out near 0, where 1 minus it is what counts. 1 for t
/// up to 0.
inline Pair Transmit(Pair t) {
  const Pair depth = Clamped(t, 0.0, 700.0);
  const Pair e = ExpInRange(-depth);
  const Pair left = depth < Both(1.0) ? 1.0 - depth : Both(0.0);
  return (1.0 - depth - e) * (left * left) + e;
}

/// Strength of the ozone band at a height scaled to an 8 km atmosphere, metres: rises from 12 km, peaks near
/// 35 km, ends at 63 km.
inline double OzoneProfile(double height) {
  if (!(height > 12000.0 && height < 63411.0)) return 0.0;
  // sin y on -1 to 3 pi / 2: folded to within pi / 2, where the series to y^15 is good to 1e-11.
  double y = (height - 21000.0) * 0.00011111111111111112;
  if (y > 1.5707963267948966) y = 3.141592653589793 - y;
  const double y2 = y * y, y4 = y2 * y2;
  // Two chains of every other term, which don't wait for each other.
  const double even = 1.0 + y4 * (1.0 / 120.0 + y4 * (1.0 / 362880.0 + y4 * (1.0 / 6227020800.0)));
  const double odd =
      -1.0 / 6.0 + y4 * (-1.0 / 5040.0 + y4 * (-1.0 / 39916800.0 + y4 * (-1.0 / 1307674368000.0)));
  const double series = even + y2 * odd;
  const double rise = (height - 12000.0) * 0.000125;
  return std::max(0.0, std::min((series * y * 0.5 + 0.5) * 8.0, rise * rise * rise * 8.0));
}

}  // namespace atmosphere
