// Elevation files into rasters of heights: which part, how fine, in what units, where on the ground.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/raster/height_grid.h"
#include "host/raster/raster_source.h"

namespace ovhost {

/// Opens band `band` (from 1) of an elevation file: .ovh, .exr, and what GDAL reads with one file and a
/// header beside it. Null with the problem told. Thread-safe.
OV_API std::unique_ptr<RasterSource> OpenRaster(const std::string& path, int band, std::string& problem);

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
