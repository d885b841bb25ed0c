// Where a river runs on a raster: what drains where, the way down from a source, and the heights of its bed.
#pragma once

#include <cstdint>
#include <vector>

#include "core/heightfield.h"

/// Which way water leaves every point of a raster: through the lowest way out, to the border or the sea.
/// Points of the sea, and those whose height isn't finite, take all that reaches them.
class Drainage {
 public:
  /// Heights in metres, `width` times `height`, which may be other than the ground's own to lead water by.
  /// A priority flood from the ways out inwards (Barnes, Lehman and Mulla 2014), over 65536 steps of height.
  Drainage(const std::vector<float>& heights, int width, int height, double seaLevel);

  /// The point that `point` drains to; -1 where water leaves.
  std::int32_t Next(std::int32_t point) const { return next_[static_cast<std::size_t>(point)]; }
  /// How many points drain through one, itself included.
  float Area(std::int32_t point) const { return area_[static_cast<std::size_t>(point)]; }

 private:
  std::vector<std::int32_t> next_;
  std::vector<float> area_;
};

/// A place on a river. Metres, from the raster's south-west corner.
struct RiverPlace {
  double x, z;
  double ground;  ///< height of the ground as it was
  double bed;     ///< height of the middle of the bed
  double width, depth;
  double area;  ///< that drains here, in points
};

/// From a source down, to the river's end or to where it meets a river made before it.
using RiverCourse = std::vector<RiverPlace>;

struct RiverShape {
  double width = 0, depth = 0;  ///< at the mouth, metres
  double fall = 0;              ///< metres per metre, at least
  double deepestCut = 0;        ///< metres below the ground
  double smoothing = 0;         ///< metres of course over which the bed is levelled
};

/// The courses from `sources` (points), longest first where they meet. `ground` is in metres, steps are the
/// raster's in metres. Every course falls by at least `fall` all along and lies at most `deepestCut` (or its
/// depth) below the ground; hollows on its way are filled instead.
std::vector<RiverCourse> FindCourses(const Drainage& drainage, const std::vector<float>& ground, int width,
                                     double stepX, double stepZ, const std::vector<std::int32_t>& sources,
                                     const RiverShape& shape);
