// Latitude and longitude of rasters whose coordinates are lengths of a map projection.
#pragma once

#include <string>

#include "host/raster/raster_read.h"

namespace ovhost {

/// Sets the plan's corners for a projected raster whose rows run from west to east on the map. Heightfields
/// are placed by a box of latitudes and longitudes: each of its sides is the mean of the raster's edge there.
/// A warning of the plan tells where a point lies more than a cell off its place by that, or why there are no
/// corners. Thread-safe.
void SetProjectedCorners(const RasterInfo& info, RasterPlan& plan);

}  // namespace ovhost
