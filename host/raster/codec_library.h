// The library of raster formats, loaded with the first file.
#pragma once

#include "host/raster/codec/codec.h"

namespace ovhost {

/// Its functions; null ones with the reason in `problem` where it can't be loaded. Thread-safe.
struct RasterCodec {
  RasterOpener* open = nullptr;
  GeoRasterOpener* openGeo = nullptr;
  GeoTiffWriter* writeGeoTiff = nullptr;
  std::string problem;
};
const RasterCodec& LoadRasterCodec();

}  // namespace ovhost
