// Where what lies in an .ovh file, byte by byte, for its reader and its writer.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace ovhost::ovh {

static_assert(std::endian::native == std::endian::little, "the file's numbers are little-endian");

inline constexpr unsigned char kMagic[8] = {0x89, 'O', 'V', 'H', 0x0d, 0x0a, 0x1a, 0x0a};
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::uint32_t kTile = 256;
inline constexpr std::uint32_t kLeastTile = 16, kGreatestTile = 1024;
inline constexpr std::uint32_t kHasCorners = 1;

/// The first bytes of a file. The checksum is the CRC-32 of those before it.
struct Header {
  unsigned char magic[8];
  std::uint32_t version, headerBytes;
  std::uint32_t width, height, tile, flags;
  double xScale, yScale, zScale;
  double south, west, north, east;
  float lowest, highest;
  std::uint64_t indexOffset;
  std::uint32_t indexChecksum;
  std::uint32_t reserved[2];
  std::uint32_t checksum;
};
static_assert(sizeof(Header) == 120 && offsetof(Header, checksum) == 116);

/// One tile: where its bytes lie, and their CRC-32. The index lists them row by row from the south-west.
struct IndexEntry {
  std::uint64_t offset;
  std::uint32_t size, checksum;
};
static_assert(sizeof(IndexEntry) == 16);

}  // namespace ovhost::ovh
