// Packs and unpacks the tiles of .ovh files.
#include "host/raster/ovh_tile.h"

#include <zlib.h>

#include <bit>

namespace ovhost {
namespace {

constexpr int kLevel = 5;
constexpr std::uint32_t kSign = 0x80000000u;
/// The key of 0, which is what the first value of a tile is predicted to be.
constexpr std::uint32_t kZeroKey = kSign;

/// Floats as integers of the same order, so that neighbours have neighbouring keys.
std::uint32_t KeyOf(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return bits & kSign ? ~bits : bits | kSign;
}
float ValueOf(std::uint32_t key) { return std::bit_cast<float>(key & kSign ? key & ~kSign : ~key); }

/// Differences to small numbers, whatever their sign.
std::uint32_t Fold(std::uint32_t difference) { return difference << 1 ^ (0u - (difference >> 31)); }
std::uint32_t Unfold(std::uint32_t folded) { return folded >> 1 ^ (0u - (folded & 1)); }

/// The plane through the three neighbours before; along the tile's edges the one neighbour there is.
std::uint32_t Predict(const std::uint32_t* row, const std::uint32_t* before, int x) {
  if (!before) return x ? row[x - 1] : kZeroKey;
  return x ? row[x - 1] + before[x] - before[x - 1] : before[0];
}

}  // namespace

bool PackOvhTile(const float* values, std::int64_t stride, int width, int rows, OvhScratch& scratch,
                 std::vector<unsigned char>& packed) {
  const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(rows);
  scratch.keys.resize(count);
  scratch.planes.resize(count * 4);
  unsigned char* const planes = scratch.planes.data();
  for (int y = 0; y < rows; ++y) {
    std::uint32_t* const row = scratch.keys.data() + static_cast<std::size_t>(y) * width;
    for (int x = 0; x < width; ++x) row[x] = KeyOf(values[y * stride + x]);
    const std::uint32_t* const before = y ? row - width : nullptr;
    unsigned char* const out = planes + static_cast<std::size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      const std::uint32_t folded = Fold(row[x] - Predict(row, before, x));
      for (int p = 0; p < 4; ++p) out[p * count + x] = static_cast<unsigned char>(folded >> (24 - 8 * p));
    }
  }
  uLongf size = compressBound(static_cast<uLong>(count * 4));
  packed.resize(size);
  if (compress2(packed.data(), &size, planes, static_cast<uLong>(count * 4), kLevel) != Z_OK) return false;
  packed.resize(size);
  return true;
}

bool UnpackOvhTile(const unsigned char* packed, std::size_t size, int width, int rows, OvhScratch& scratch,
                   float* values) {
  const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(rows);
  scratch.keys.resize(count);
  scratch.planes.resize(count * 4);
  uLongf unpacked = static_cast<uLongf>(count * 4);
  uLong taken = static_cast<uLong>(size);
  if (uncompress2(scratch.planes.data(), &unpacked, packed, &taken) != Z_OK || unpacked != count * 4 ||
      taken != size)
    return false;
  const unsigned char* const planes = scratch.planes.data();
  for (int y = 0; y < rows; ++y) {
    std::uint32_t* const row = scratch.keys.data() + static_cast<std::size_t>(y) * width;
    const std::uint32_t* const before = y ? row - width : nullptr;
    const unsigned char* const in = planes + static_cast<std::size_t>(y) * width;
    for (int x = 0; x < width; ++x)
      row[x] = Unfold(std::uint32_t{in[x]} << 24 | std::uint32_t{in[count + x]} << 16 |
                      std::uint32_t{in[2 * count + x]} << 8 | in[3 * count + x]);
    for (int x = 0; x < width; ++x) row[x] += Predict(row, before, x);
    for (int x = 0; x < width; ++x) values[static_cast<std::size_t>(y) * width + x] = ValueOf(row[x]);
  }
  return true;
}

}  // namespace ovhost
