// Foreign bytes as a picture's header, with and without a Targa's name; and as an encoded picture.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/image/encoded_picture.h"
#include "host/image/picture_header.h"

namespace {

void Check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const char* name : {"a", "a.tga"}) {
    ovhost::PictureHeader header;
    std::string problem;
    const bool isRead =
        ovhost::ReadPictureHeader(ovhost::PictureMemoryBytes(data, size), name, header, problem);
    Check(isRead == problem.empty());
    if (!isRead) continue;
    // No file unfolds without end: the most is a bit for each of 32, and what the best compression does.
    Check(header.width > 0 && header.height > 0 && header.channels > 0 && header.DecodedBytes() > 0);
    Check(header.DecodedBytes() <= (1 << 28) ||
          static_cast<double>(header.width) * static_cast<double>(header.height) / 8 <=
              70000.0 * static_cast<double>(size));
    ovhost::EncodedProblem(name, data, size, static_cast<int>(header.width), static_cast<int>(header.height));
  }
  return 0;
}
