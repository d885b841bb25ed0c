// Foreign bytes as an .ovh file: as they come, and with the checksums that a forger would have put right.
#include <zlib.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/raster/ovh_layout.h"
#include "host/raster/ovh_reader.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/memory_source.h"

namespace {

using ovhost::ovh::Header;
using ovhost::ovh::IndexEntry;

std::uint32_t Checksum(const char* data, std::size_t size) {
  return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(data), size));
}

/// Checksums of tiles, index and header as the bytes want them.
void Forge(std::string& bytes) {
  Header header;
  if (bytes.size() < sizeof header) return;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.tile && header.indexOffset <= bytes.size()) {
    const std::uint64_t tiles = (std::uint64_t{header.width} + header.tile - 1) / header.tile *
                                ((std::uint64_t{header.height} + header.tile - 1) / header.tile);
    const std::uint64_t room = (bytes.size() - header.indexOffset) / sizeof(IndexEntry);
    if (tiles <= room) {
      for (std::uint64_t i = 0; i < tiles; ++i) {
        IndexEntry entry;
        char* const at = bytes.data() + header.indexOffset + i * sizeof entry;
        std::memcpy(&entry, at, sizeof entry);
        if (entry.offset > bytes.size() || entry.size > bytes.size() - entry.offset) continue;
        entry.checksum = Checksum(bytes.data() + entry.offset, entry.size);
        std::memcpy(at, &entry, sizeof entry);
      }
      header.indexChecksum = Checksum(bytes.data() + header.indexOffset, tiles * sizeof(IndexEntry));
      std::memcpy(bytes.data(), &header, sizeof header);
    }
  }
  header.checksum = Checksum(bytes.data(), offsetof(Header, checksum));
  std::memcpy(bytes.data(), &header, sizeof header);
}

/// A part read by itself is what it is in the whole.
void Read(const std::string& bytes) {
  std::string problem;
  const auto source = ovhost::OpenOvh(std::make_unique<MemorySource>(bytes), problem);
  if (!source) {
    Check(!problem.empty());
    return;
  }
  const std::int64_t width = source->Info().width, height = source->Info().height;
  // What a file's bytes can stand for at most.
  Check(static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) <= bytes.size() * 300);
  std::vector<float> whole(static_cast<std::size_t>(width * height));
  if (!source->Read({0, 0, width, height}, whole.data(), width, problem)) return;
  const std::int64_t x = width / 3, y = height / 3, columns = (width - x + 1) / 2,
                     rows = (height - y + 1) / 2;
  std::vector<float> part(static_cast<std::size_t>(columns * rows));
  Check(source->Read({x, y, columns, rows}, part.data(), columns, problem));
  for (std::int64_t j = 0; j < rows; ++j)
    Check(std::memcmp(part.data() + j * columns, whole.data() + (y + j) * width + x,
                      static_cast<std::size_t>(columns) * sizeof(float)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string bytes = InputText(data, size);
  Read(bytes);
  Forge(bytes);
  Read(bytes);
  return 0;
}
