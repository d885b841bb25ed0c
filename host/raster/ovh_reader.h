// Reading the system's own heightfield files, .ovh: docs/heightfield_format.md tells their bytes.
#pragma once

#include <memory>
#include <string>

#include "core/api.h"
#include "host/raster/raster_source.h"

namespace ovhost {

/// Bytes of a file, or of a block of memory. Thread-safe.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::uint64_t Size() const = 0;
  /// False unless all are there.
  virtual bool Read(std::uint64_t offset, void* out, std::uint64_t size) const = 0;
};
/// Null with the problem told.
OV_API std::unique_ptr<ByteSource> OpenBytes(const std::string& path, std::string& problem);

/// Whether the bytes begin as an .ovh does.
OV_API bool IsOvh(const ByteSource& bytes);
/// Opens an .ovh, row 0 the northern one, as of other formats; the values are those of the raster, and
/// `info.scale` is the z scale. Null with the problem told. Nothing is believed: a raster is no larger than
/// the file's tiles can hold.
OV_API std::unique_ptr<RasterSource> OpenOvh(std::unique_ptr<ByteSource> bytes, std::string& problem);

}  // namespace ovhost
