// What a picture file says of itself in its first bytes: its format and how much it unfolds to. Read before
// any library gets to see the file, because libraries make room for what a header claims.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/api.h"

namespace ovhost {

/// The bytes of a file, wherever they are.
class OV_API PictureBytes {
 public:
  virtual ~PictureBytes() = default;
  virtual std::uint64_t Size() const = 0;
  /// False where the range isn't inside.
  virtual bool Read(std::uint64_t offset, void* out, std::size_t size) const = 0;
};

/// An open file, which stays the caller's.
class OV_API PictureFileBytes final : public PictureBytes {
 public:
  PictureFileBytes(int file, std::uint64_t size) : file_(file), size_(size) {}
  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t size) const override;

 private:
  int file_;
  std::uint64_t size_;
};

class OV_API PictureMemoryBytes final : public PictureBytes {
 public:
  PictureMemoryBytes(const void* data, std::uint64_t size)
      : data_(static_cast<const unsigned char*>(data)), size_(size) {}
  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t size) const override;

 private:
  const unsigned char* data_;
  std::uint64_t size_;
};

struct OV_API PictureHeader {
  const char* format = "";  ///< as the library of picture formats calls it
  std::int64_t width = 0, height = 0;
  std::int64_t channels = 0, channelBytes = 0;  ///< once decoded
  /// Pixels of a tile, and of the window that is shown, where the format has them.
  double tileArea = 0, displayArea = 0;
  double storedBits = 0;  ///< of a pixel, before compression
  /// The most bytes that one of the file stands for before it is unpacked, generously.
  double greatestCompression = 1;

  /// What all its pixels, or one of its tiles if that is larger, take once decoded.
  double DecodedBytes() const;
};

/// Recognises the format by the bytes, and by the name only where the format has no mark (Targa), and reads
/// the size. False with the reason where it is none of the formats that are read (moving pictures, playlists
/// and camera raw data are not), or where a file of this length can't hold what it says. Thread-safe.
OV_API bool ReadPictureHeader(const PictureBytes& file, const std::string& path, PictureHeader& header,
                              std::string& problem);

}  // namespace ovhost
