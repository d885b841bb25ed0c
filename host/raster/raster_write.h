// Rasters of heights into elevation files.
#pragma once

#include <string>

#include "host/raster/height_grid.h"

namespace ovhost {

struct RasterWriteOptions {
  int bits = 0;  ///< 32 (GeoTIFF only) or 16; 0 is what the format is best at
  int threads = 1;
  WorkProgress progress;
};

/// Whether the path's extension is one that can be written: tif, tiff, exr, png, asc, ovh, lwo.
OV_API bool IsHeightfieldPath(const std::string& path);

/// Writes metres (.ovh: raster units), atomically, in the format of the path's extension, with scale and
/// geographic corners where the format has a place for them, GeoTIFF and ASCII grids on the grid's map.
/// `note` tells what a reader of the file has to know, such as the heights that 16 bits stand for. Empty, or
/// why the file isn't there.
OV_API std::string WriteHeightfield(const std::string& path, const HeightGrid& grid,
                                    const RasterWriteOptions& options, std::string& note);

}  // namespace ovhost
