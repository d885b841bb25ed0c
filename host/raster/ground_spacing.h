// True lengths of rasters on map projections.
#pragma once

#include "host/raster/raster_read.h"

namespace ovhost {

/// Projections such as the web's Mercator stretch lengths, by 1.46 at 47 degrees of latitude: sets the plan's
/// scales to what the middle cell measures on the ground, where that is more than a hundredth off the map's
/// lengths. Thread-safe.
void SetGroundSpacing(const RasterInfo& info, RasterPlan& plan);

}  // namespace ovhost
