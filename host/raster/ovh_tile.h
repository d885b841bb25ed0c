// Tiles of .ovh files: heights predicted from their neighbours, bytes sorted by weight, deflated.
#pragma once

#include <cstdint>
#include <vector>

namespace ovhost {

/// Scratch memory of who packs and unpacks tiles.
struct OvhScratch {
  std::vector<std::uint32_t> keys;
  std::vector<unsigned char> planes;
};

/// Packs `rows` rows of `width` values, `stride` apart. False where zlib refuses.
bool PackOvhTile(const float* values, std::int64_t stride, int width, int rows, OvhScratch& scratch,
                 std::vector<unsigned char>& packed);
/// Unpacks into rows of `width` values, without gaps. False unless the bytes are one whole such tile.
bool UnpackOvhTile(const unsigned char* packed, std::size_t size, int width, int rows, OvhScratch& scratch,
                   float* values);
/// The fewest bytes that so many values can be packed in: zlib's best is 1032 to 1, and its frame takes 6.
inline std::uint64_t LeastOvhTileBytes(std::uint64_t values) { return values * 4 / 1100 + 6; }

}  // namespace ovhost
