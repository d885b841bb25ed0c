// A raster of heights as files and pictures are made of it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/heightfield.h"

namespace ovhost {

/// Points of someone else's raster. Row 0 is the southern one; metres are value times zScale.
struct HeightGrid {
  std::int64_t width = 0, height = 0;
  const float* values = nullptr;
  double xScale = 1, yScale = 1, zScale = 1;  ///< metres per interval, and per value
  bool hasCorners = false;
  trLatLongCorners corners;  ///< of the corner points
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
