// Looking for a place to stand: somewhere on a landscape from where there is much of it to see.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "core/api.h"
#include "core/vector.h"

namespace ovhost {

/// Heights over a square round the origin.
struct HeightSurvey {
  int side = 0;                 ///< points a side
  double step = 0;              ///< metres between points
  std::vector<double> heights;  ///< metres, rows from south to north, each from west to east
  std::optional<double> water;  ///< height of what stands in the valleys

  double Reach() const { return 0.5 * (side - 1) * step; }
  /// Ground or water, whichever is higher, between the points; x east, z north.
  double At(double x, double z) const;
};

struct Viewpoint {
  double x = 0, z = 0;  ///< metres east and north
  double heading = 0;   ///< degrees from north towards east
  double horizon = 0;   ///< mean elevation of the skyline there, degrees
};

/// The places with the best views, the best first, at most `count`: near ground that falls away, ridges
/// behind each other, a skyline of some degrees that goes up and down; over water where there is any.
/// `radius` is the planet's, whose curve hides what is far. Thread-safe.
OV_API std::vector<Viewpoint> FindViewpoints(const HeightSurvey& survey, double radius, size_t count);

/// How much of the land that is seen there a sun shines on, 0 to 1. Degrees, the heading from north towards
/// east. Thread-safe.
OV_API double LitShare(const HeightSurvey& survey, double radius, const Viewpoint& view, double sunHeading,
                       double sunElevation);

}  // namespace ovhost
