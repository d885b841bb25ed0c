// What the lattice noises of fixed seed and their filtered forms share.
#pragma once

#include <algorithm>

#include "host/noise/lattice.h"

namespace ovnoise {

/// The seed of trLerpNoise3: each noise of fixed seed has its own.
inline constexpr uint64_t kLerpSeed = HashSeed(101);
/// Below this width the box average's difference of integrals loses more digits than the average changes.
inline constexpr double kPointWidth = 1e-5;

/// Full strength to a width of one cell, gone at two.
inline double BoxFade(double width) {
  const double t = std::clamp(2.0 - width, 0.0, 1.0);
  return (3.0 - 2.0 * t) * t * t;
}

}  // namespace ovnoise
