// Writing the system's own heightfield files, .ovh.
#pragma once

#include <string>

#include "host/raster/height_grid.h"

namespace ovhost {

/// Writes a grid to an .ovh, atomically. Empty, or why it isn't there.
OV_API std::string WriteOvh(const std::string& path, const HeightGrid& grid, int threads,
                            const WorkProgress& progress);

}  // namespace ovhost
