// A phase function as paths need it: of mean 1, with its moments and directions drawn after it.
#pragma once

#include <array>
#include <functional>

#include "core/vector.h"

namespace ovhost::voxel {

/// Tabulated over the angle, which resolves the narrow glow round a light. Immutable once made; then
/// thread-safe.
class PhaseTable {
 public:
  /// `phase` of the cosine of the angle by which light is turned; what is negative or no number counts as 0.
  /// A function that is 0 everywhere is taken for even.
  explicit PhaseTable(const std::function<double(double)>& phase = [](double) { return 1.0; });

  double Value(double cosAngle) const;
  /// Mean cosine of the angle: 0 for even scattering, 1 for none.
  double MeanCosine() const { return meanCosine_; }
  /// A direction about `axis`, drawn after the function; `u` and `v` are unit draws.
  trVector Sample(const trVector& axis, double u, double v) const;

 private:
  static constexpr int kAngles = 2048;
  std::array<double, kAngles + 1> value_, cumulated_;
  double meanCosine_ = 0;
};

/// A direction at an angle to a unit vector.
trVector TurnedFrom(const trVector& axis, double cosAngle, double azimuth);

}  // namespace ovhost::voxel
