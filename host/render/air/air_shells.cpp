// Rays and the balls that hold the air.
#include "host/render/air/air_shells.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ovhost {
namespace {

/// Two samples of a pixel whose surfaces are this close, as a share of the way through the air, have the same
/// air before them, but not where the pixel is higher than this, metres, as they pass by a planet: it holds
/// much of an atmosphere's limb then.
constexpr double kTolerance = 0.04, kLimbHeight = 250;
/// Of air that may lie anywhere, longer ways meet the sky.
constexpr double kLongest = 1e7;

}  // namespace

AirShells::AirShells(const std::vector<trAtmosShader*>& volumes) {
  for (const trAtmosShader* volume : volumes) {
    const trVolumeShape shape = volume->Shape();
    if (shape.outerRadius > shape.innerRadius && std::isfinite(shape.outerRadius))
      shells_.push_back({shape.centre, shape.outerRadius});
    else
      isEverywhere_ = true;
  }
}

AirShells::Way AirShells::WayOf(const trVector& origin, const trVector& direction, double distance,
                                double pixelAngle) const {
  double enters = isEverywhere_ ? 0 : std::numeric_limits<double>::infinity();
  bool seesLimb = isEverywhere_ && distance > kLongest;
  for (const Shell& shell : shells_) {
    const trVector fromCentre = origin - shell.centre;
    const double nearest = -Dot(fromCentre, direction),
                 outside = fromCentre.LengthSquared() - shell.radius * shell.radius;
    double entersThis = 0;
    if (outside > 0) {
      const double discriminant = nearest * nearest - outside;
      if (!(nearest > 0 && discriminant > 0)) continue;
      entersThis = nearest - std::sqrt(discriminant);
    }
    if (entersThis >= distance) continue;
    enters = std::min(enters, entersThis);
    if (distance > nearest && nearest * pixelAngle > kLimbHeight) seesLimb = true;
  }
  if (enters >= distance) return {true, 0};
  return {false, seesLimb ? -1 : kTolerance * (distance - enters)};
}

}  // namespace ovhost
