// What is wanted of an elevation file, and which of its pixels are read for it.
#pragma once

#include <string>
#include <vector>

#include "host/raster/height_grid.h"
#include "host/raster/raster_source.h"

namespace ovhost {

/// What is wanted of a file.
struct RasterRequest {
  int band = 1;
  /// Points counted from the south-west, both ends included.
  bool useWindow = false;
  double windowX0 = 0, windowY0 = 0, windowX1 = 0, windowY1 = 0;
  /// Each point stands for the mean of so many by so many.
  std::int64_t shrink = 1;

  double metresPerHeight = 0;  ///< 0: as the file says, else 1
  double verticalScale = 1, verticalOffset = 0;
  bool hasMissingValue = false;  ///< besides the file's own
  double missingValue = 0;
  bool fillsWithValue = false;  ///< missing points become `fillHeight` metres; else they become NaN
  double fillHeight = 0;

  enum class Georeference { kIgnore, kScale, kAsFile, kDegrees } georeference = Georeference::kAsFile;
  bool setsScale = false;  ///< `metresPerPixel` holds even if the file tells better
  double metresPerPixelX = 1, metresPerPixelY = 1;
};

/// How a file's pixels become points.
struct RasterPlan {
  std::int64_t width = 0, height = 0;  ///< the result's points
  std::int64_t fileX = 0, fileY = 0;   ///< its first pixel
  std::int64_t shrink = 1;
  bool northFirst = true, westFirst = true;  ///< order of the file's rows and columns
  double xScale = 1, yScale = 1, zScale = 1;
  bool hasCorners = false;
  trLatLongCorners corners;
  bool isOnMap = false;  ///< the points' places on the file's map projection hold, without its texts
  MapPlacement map;
  double factor = 1, addend = 0;  ///< raster value = stored * factor + addend
  bool hasMissingValue[2] = {false, false};
  double missingValue[2] = {0, 0};    ///< stored values that stand for none
  float fill = 0;                     ///< what missing points become
  std::vector<std::string> warnings;  ///< about the georeference and the heights' unit
};

/// Empty, or why the plan's raster, and the work on it, don't fit into so many bytes. Thread-safe.
OV_API std::string MemoryProblem(const RasterPlan& plan, std::uint64_t freeBytes);

/// Empty, or why the request can't be met. Thread-safe.
OV_API std::string PlanRaster(const RasterInfo& info, const RasterRequest& request, RasterPlan& plan);

}  // namespace ovhost
