// The exponentials of the air for a block of samples at a time, in SIMD lanes. Thread-safe; the same bits on
// every instruction set.
#pragma once

namespace atmosphere {

/// Samples that are worked out together at most.
inline constexpr int kMediaBlock = 8;
/// What arrays of lanes have room for beyond their last entry.
inline constexpr int kLaneRoom = 4;

/// Neighbouring stretches of a ray: heights of their boundaries and of the points where they are lit, metres,
/// none of them below the shell's floor.
struct MediaBlock {
  int count;
  double boundary[kMediaBlock + 1 + kLaneRoom];
  double lit[kMediaBlock + kLaneRoom];
};

/// How a medium thins out: it falls by e within `scaleHeight` metres, of which `inverse` is the reciprocal.
/// Stretches that rise by no more than `leastRise` metres are level for it.
struct MediumProfile {
  double scaleHeight, inverse, leastRise;
};

/// Density of a medium in each stretch, 1 at height 0: the mean over a stretch that climbs, and for a level
/// one that at its lit point. Densities are nothing below 1e-6 and bounded at 1e6.
void MeanDensities(const MediaBlock& block, const MediumProfile& medium,
                   double (&density)[kMediaBlock + kLaneRoom]);

/// 1 - exp(-depth) of optical depths, in place, `count` of them with room for whole lanes behind them: the
/// error of the fast exponential is taken out near 0. 0 for depths up to 0.
void TakeOpacities(double* depths, int count);

}  // namespace atmosphere
