// Light below an even surface of an endless volume, by its depth and the light's height.
#pragma once

#include <vector>

#include "host/voxel/scatter_phase.h"

namespace ovhost::voxel {

/// Of a light whose own mean radiance is 1, the mean radiance of what is scattered at least once, by discrete
/// ordinates (Chandrasekhar 1950, Radiative Transfer). It has all that changes over a free path and less;
/// real clouds differ from it by what changes slowly. Immutable once made; then thread-safe.
class HalfSpace {
 public:
  HalfSpace() = default;
  HalfSpace(const PhaseTable& phase, double albedo);
  /// What it is more than far below. `cosine` between the light and the normal; `depth` optical, straight
  /// down.
  double Change(double cosine, double depth) const;
  /// What comes to be deep inside, over what Eddington's approximation says. 1 of an empty table.
  double DeepShare(double cosine) const;

 private:
  static constexpr int kHeights = 12, kDepths = 48;
  static double CosineOf(int height);
  std::vector<float> mean_;
  std::vector<float> share_;
};

}  // namespace ovhost::voxel
