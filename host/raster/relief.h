// What a raster of heights looks like, and its figures.
#pragma once

#include <cstdint>
#include <string>

#include "host/raster/height_grid.h"

namespace ovhost {

/// The gradient at a point, rise per metre towards east and north (Horn 1981, "Hill shading and the
/// reflectance map"). Thread-safe.
struct GroundGradient {
  double east = 0, north = 0;
};
OV_API GroundGradient GradientAt(const HeightGrid& grid, std::int64_t x, std::int64_t y);

/// How many times heights have to be raised for relief to show: 1, or more for gentle ground.
OV_API double ReliefExaggeration(const HeightGrid& grid);
/// Writes a PNG of the ground in light from several sides, mainly the north-west (Mark 1992,
/// "Multidirectional oblique-weighted, shaded-relief image"), north at the top. Empty, or why it isn't there.
OV_API std::string WriteHillshade(const std::string& path, const HeightGrid& grid, double exaggeration,
                                  int threads, const WorkProgress& progress);
/// Writes a PNG of the slope, white being level and black vertical.
OV_API std::string WriteSlope(const std::string& path, const HeightGrid& grid, int threads,
                              const WorkProgress& progress);

/// Heights in metres, slopes in degrees.
struct HeightStatistics {
  std::int64_t missing = 0;  ///< points that aren't finite; they count for nothing else
  double lowest = 0, highest = 0, mean = 0, deviation = 0, median = 0;
  double meanSlope = 0, steepest = 0;
};
OV_API HeightStatistics MeasureHeights(const HeightGrid& grid, int threads);

}  // namespace ovhost
