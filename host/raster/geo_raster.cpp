// Opens georeferenced rasters by the library of raster formats.
#include "core/geo_raster.h"

#include "host/base/plain_file.h"
#include "host/raster/codec_library.h"

std::unique_ptr<trGeoRaster> trOpenGeoRaster(const trString& path, bool& isFormatKnown, trString& problem) {
  isFormatKnown = true;
  if (!ovhost::IsPlainFile(path, problem)) return nullptr;
  const ovhost::RasterCodec& codec = ovhost::LoadRasterCodec();
  if (!codec.openGeo) return problem = codec.problem, nullptr;
  return std::unique_ptr<trGeoRaster>(codec.openGeo(path, isFormatKnown, problem));
}
