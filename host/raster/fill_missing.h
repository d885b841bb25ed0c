// Heights for points that have none.
#pragma once

#include <cstdint>

#include "core/api.h"

namespace ovhost {

/// Fills the points of a raster that are NaN with a smooth membrane between their neighbours, no value
/// outside those of the whole raster. Takes a third of the raster's memory while it works. A raster of
/// nothing but NaN becomes 0. Returns how many points there were to fill.
OV_API std::int64_t FillMissing(float* values, std::int64_t width, std::int64_t height);

}  // namespace ovhost
