// Loads the library of raster formats.
#include "host/raster/codec_library.h"

#include <dlfcn.h>

#include "host/base/library_folder.h"

namespace ovhost {
namespace {

RasterCodec Load() {
  RasterCodec codec;
  void* library = dlopen((LibraryFolder() / "libovraster.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library) {
    codec.open = reinterpret_cast<RasterOpener*>(dlsym(library, "ovOpenRaster"));
    codec.openGeo = reinterpret_cast<GeoRasterOpener*>(dlsym(library, "ovOpenGeoRaster"));
    codec.writeGeoTiff = reinterpret_cast<GeoTiffWriter*>(dlsym(library, "ovWriteGeoTiff"));
  }
  if (!codec.open || !codec.openGeo || !codec.writeGeoTiff)
    codec = {nullptr, nullptr, nullptr, std::string("the raster formats can't be loaded: ") + dlerror()};
  return codec;
}

}  // namespace

const RasterCodec& LoadRasterCodec() {
  static const RasterCodec codec = Load();
  return codec;
}

}  // namespace ovhost
