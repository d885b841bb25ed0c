// The layout of OVO files: chunks of little-endian words and floats, each at a multiple of 4.
//
// A file is a magic, "DATA", the offset of the first chunk and a tag of four bytes; then chunks to the end. A
// chunk is an identifier, the size of its payload, the payload, and padding to a multiple of 4 that the size
// leaves out. In files the second and third numbers of points and normals stand for z and y.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <string_view>

using OvoBytes = std::span<const unsigned char>;

constexpr std::string_view kOvoMagic = "OMBRIVEXGEOMETRY";
constexpr std::uint32_t kOvoFirstChunk = 28;  ///< where writers put it
constexpr std::size_t kOvoDescriptorPairs = 16;

constexpr std::uint32_t OvoWord(const unsigned char* at) {
  return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 |
         std::uint32_t{at[3]} << 24;
}
inline float OvoFloat(const unsigned char* at) { return std::bit_cast<float>(OvoWord(at)); }

/// Reads forward in bytes, and never past their end.
class OvoCursor {
 public:
  explicit OvoCursor(OvoBytes bytes) : left_(bytes) {}

  std::size_t Left() const { return left_.size(); }
  const unsigned char* At() const { return left_.data(); }
  /// The next `count` bytes, or as many as there are.
  OvoBytes Take(std::size_t count) {
    const OvoBytes taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  bool TakeWord(std::uint32_t& word) {
    if (Left() < 4) return false;
    word = OvoWord(Take(4).data());
    return true;
  }

 private:
  OvoBytes left_;
};

struct OvoChunk {
  std::string_view id;
  OvoBytes payload;
  bool isWhole = true;  ///< what it is said to hold is there
};

/// The next chunk; false at the end. One that is said to hold more than there is ends with what there is.
inline bool TakeOvoChunk(OvoCursor& from, OvoChunk& chunk) {
  if (from.Left() < 4) return false;
  chunk.id = {reinterpret_cast<const char*>(from.Take(4).data()), 4};
  std::uint32_t size;
  if (!from.TakeWord(size)) {
    from.Take(from.Left());
    size = 1;
  }
  chunk.payload = from.Take(size);
  chunk.isWhole = chunk.payload.size() == size;
  from.Take((4 - size % 4) % 4);
  return true;
}
