// Where rays meet the air, and which rays of a pixel see the same of it.
#pragma once

#include <vector>

#include "core/atmosphere.h"

namespace ovhost {

/// The balls that volumes lie in. Thread-safe.
class OV_API AirShells {
 public:
  explicit AirShells(const std::vector<trAtmosShader*>& volumes);

  /// A ray's way through the air.
  struct Way {
    bool isClear = false;  ///< it meets none
    /// By how much the ways of two samples of a pixel may differ in length, metres, for them to see the same;
    /// negative where none does.
    double tolerance = 0;
  };
  /// Of a ray to `distance` at most, in a pixel as wide as that angle, radians.
  Way WayOf(const trVector& origin, const trVector& direction, double distance, double pixelAngle) const;

 private:
  struct Shell {
    trVector centre;
    double radius;
  };
  std::vector<Shell> shells_;
  bool isEverywhere_ = false;  ///< a volume doesn't tell where it lies
};

}  // namespace ovhost
