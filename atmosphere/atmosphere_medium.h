// The formulas of the air that are taken a sample at a time: phase functions and the ozone band. Pure
// functions.
#pragma once

#include <algorithm>
#include <cmath>

namespace atmosphere {

/// Extinctions are set in units of 1e-5 per metre.
inline constexpr double kPerMetre = 1e-5;

/// Brightness of a medium against an even glow, at the angle whose cosine is given (1 looks into the light).
/// `radius` is the light's apparent radius in radians: the glow is flat inside it. Always finite.
float GlowPhase(float cosAngle, bool glow, float radius, float amount, float power, bool improved);

/// Rayleigh's phase function, averaging 1 over the sphere.
inline double RayleighPhase(double cosAngle) { return 0.75 * (cosAngle * cosAngle + 1.0); }

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
