// Finds the reader of an elevation file.
#include "host/raster/raster_open.h"

#include <cstring>

#include "host/raster/codec_library.h"
#include "host/raster/exr_channels.h"
#include "host/raster/ovh_reader.h"
#include "host/raster/picture_source.h"

namespace ovhost {

std::unique_ptr<RasterSource> OpenRaster(const std::string& path, int band, std::string& problem) {
  // Opened here first, so that only names of files get any further.
  auto bytes = OpenBytes(path, problem);
  if (!bytes) return nullptr;
  if (IsOvh(*bytes)) {
    if (band != 1) return problem = "it has no band " + std::to_string(band) + ", only 1", nullptr;
    return OpenOvh(std::move(bytes), problem);
  }
  static constexpr unsigned char kExr[4] = {0x76, 0x2f, 0x31, 0x01};
  unsigned char begin[4];
  const bool isExr = bytes->Size() >= 4 && bytes->Read(0, begin, 4) && std::memcmp(begin, kExr, 4) == 0;
  const std::string unsignedChannel = isExr ? UnsignedExrChannel(*bytes) : "";
  if (!unsignedChannel.empty())
    return problem = "its channel " + unsignedChannel + " holds unsigned integers, which are no heights",
           nullptr;
  bytes.reset();
  if (isExr) return OpenPictureRaster(path, band, problem);
  const RasterCodec& codec = LoadRasterCodec();
  if (!codec.open) return problem = codec.problem, nullptr;
  return std::unique_ptr<RasterSource>(codec.open(path, band, problem));
}

}  // namespace ovhost
