// Pictures from files, decoded by a process of its own, so that a damaged file costs a message.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/image.h"

namespace ovhost {

/// The pixels of a file.
struct DecodedImage {
  int width = 0, height = 0, channels = 0;
  trChannelType type = trChannelType::kByte;
  std::shared_ptr<unsigned char> pixels;
};

/// Reads a file, or takes what is in memory of it still. Null pixels with the reason in `problem`.
/// Thread-safe.
DecodedImage ReadImageFile(const std::string& path, std::string& problem);

/// The same for pixels that mean more than light: what isn't finite is kept, and nobody shares them.
DecodedImage ReadDataFile(const std::string& path, std::string& problem);

/// Bytes of all pictures read and still in use; pictures used several times count once. Thread-safe.
OV_API std::int64_t ImageMemoryInUse();

}  // namespace ovhost
