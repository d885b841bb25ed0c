// A raster of heights as files and pictures are made of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "core/heightfield.h"

namespace ovhost {

/// Where a raster's points lie on the map projection of the file that it came from, in the map's own units.
struct MapPlacement {
  std::string reference, esriReference;  ///< well-known texts, ISO 19162's and ESRI's
  double west = 0, north = 0;            ///< of the north-western point
  double stepX = 1, stepY = 1;           ///< between points, eastwards and southwards
};

/// Points of someone else's raster. Row 0 is the southern one; metres are value times zScale.
struct HeightGrid {
  std::int64_t width = 0, height = 0;
  const float* values = nullptr;
  double xScale = 1, yScale = 1, zScale = 1;  ///< metres per interval, and per value
  bool hasCorners = false;
  trLatLongCorners corners;                 ///< of the corner points
  std::shared_ptr<const MapPlacement> map;  ///< null where there is none
  float lowest = 0, highest = 0;

  const float* Row(std::int64_t y) const { return values + y * width; }
};

/// The node's raster; valid until the node next operates or goes.
OV_API HeightGrid GridOf(const trHeightfield& heightfield);

/// Told how far long work is, 0 to 1; false stops it.
struct WorkProgress {
  bool (*report)(void* context, double fraction) = nullptr;
  void* context = nullptr;
  bool Report(double fraction) const { return !report || report(context, fraction); }
};

}  // namespace ovhost
