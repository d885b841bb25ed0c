// Latitude and longitude on a planet.
#pragma once

#include <algorithm>
#include <cmath>

#include "core/guarded.h"
#include "core/project.h"
#include "core/vector.h"

/// The ball that georeferenced nodes lie on: the project's active object, where that is a planet.
struct trPlanetGeography {
  trVector centre{0, -6.378e6, 0};
  double radius = 6.378e6;
  tr2Vector
      latLongAtApex;  ///< degrees, of the point above the centre along +y; there +z is north and +x east

  /// Reads it from the project of `node`; false where there is no planet. Main thread, or from a lazily built
  /// table under its lock.
  bool Read(const trBase* node) {
    const juProject* const project = juProject::Of(node);
    const trBase* const object = project ? project->PActiveShadableObject() : nullptr;
    if (!object || !object->IsTrue("is_planet")) return false;
    object->GetParam("centre", centre);
    object->GetParam("radius", radius);
    object->GetParam("lat_long_at_apex", latLongAtApex);
    return true;
  }

  /// Latitude and longitude under a point, degrees; the longitude within half a turn of `nearLongitude`.
  tr2Vector LatLong(const trVector& point, double nearLongitude = 0) const {
    const trVector d = Normalised(point - centre);
    const double apex = latLongAtApex.x * kDegreesToRadians, sine = std::sin(apex), cosine = std::cos(apex);
    const double latitude = std::asin(std::clamp(d.y * sine + d.z * cosine, -1.0, 1.0)) * kRadiansToDegrees;
    double longitude =
        latLongAtApex.y + std::atan2(d.x, d.y * cosine - d.z * sine) * kRadiansToDegrees - nearLongitude;
    longitude -= 360.0 * std::floor(longitude / 360.0 + 0.5);
    return {latitude, longitude + nearLongitude};
  }
};
