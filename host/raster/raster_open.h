// Opens elevation files, whatever their format.
#pragma once

#include <memory>
#include <string>

#include "core/api.h"
#include "host/raster/raster_source.h"

namespace ovhost {

/// Opens band `band` (from 1) of an elevation file: .ovh, .exr, and what GDAL reads with one file and a
/// header beside it. Null with the problem told. Thread-safe.
OV_API std::unique_ptr<RasterSource> OpenRaster(const std::string& path, int band, std::string& problem);

}  // namespace ovhost
