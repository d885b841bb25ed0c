// The median of a raster of heights.
#pragma once

#include "host/raster/height_grid.h"

namespace ovhost {

/// The median of the values that are finite, in raster units: of an even number of them the mean of the two
/// in the middle; 0 where there are none. Takes half a megabyte a thread, whatever the raster's size.
double MedianHeight(const HeightGrid& grid, int threads);

}  // namespace ovhost
