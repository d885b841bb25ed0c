// Elevation files into rasters of heights.
#pragma once

#include <string>

#include "host/raster/raster_open.h"
#include "host/raster/raster_plan.h"

namespace ovhost {

/// A file being read by several threads, each with a source of its own.
struct RasterJob {
  std::string path;
  int band = 1;
  RasterSource* source = nullptr;
  int threads = 1;
  WorkProgress progress;
  float* out = nullptr;           ///< the plan's points, row 0 the southern one
  bool hasMissing = false;        ///< told: points were missing
  float lowest = 0, highest = 0;  ///< told: range of all values that are numbers; none where lowest > highest
  bool wasStopped = false;        ///< told: by `progress`
};
/// Empty, or why the file can't be read.
OV_API std::string ReadRaster(RasterJob& job, const RasterPlan& plan);

}  // namespace ovhost
