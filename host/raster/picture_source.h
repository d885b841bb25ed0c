// Elevation files that are pictures of the image reader's kinds.
#pragma once

#include <memory>
#include <string>

#include "host/raster/raster_source.h"

namespace ovhost {

/// Opens a channel (from 1) of an OpenEXR picture; null with the problem told. Holds the whole picture.
std::unique_ptr<RasterSource> OpenPictureRaster(const std::string& path, int channel, std::string& problem);

}  // namespace ovhost
