// Smith's masking for slope distributions with tweaked tails, which have no closed form.
#pragma once

namespace ovhost {

/// Tail exponents run from 0.5 to 8; 2 is neutral.
inline constexpr double kLeastTail = 0.5, kGreatestTail = 8;

/// Exponent of the squared slope in the tweaked GGX (a Student's t distribution; Ribardiere et al. 2017): 2
/// at the neutral tail, above the 1.5 at which slopes cease to have a mean.
constexpr double GgxTailPower(double tail) { return 1.5 + 0.25 * tail; }

/// Row of the tables for a tail exponent.
double MaskingRow(double tail);
/// Smith's Lambda at `slope`, the viewer's cotangent over the roughness; `slope` is above 0. Thread-safe: the
/// first call fills the family's table.
double TweakedBeckmannLambda(double row, double slope);
double TweakedGgxLambda(double row, double slope);

}  // namespace ovhost
