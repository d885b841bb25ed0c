// The readers of sizes, one a picture format.
#pragma once

#include <cstdint>

#include "host/image/picture_header.h"

namespace ovhost {

/// Numbers of a file. What lies outside of it is 0. Per-thread state.
class HeaderCursor {
 public:
  explicit HeaderCursor(const PictureBytes& file) : file_(file) {}
  std::uint64_t Size() const { return file_.Size(); }
  bool Has(std::uint64_t offset, std::uint64_t size) const {
    return offset <= Size() && size <= Size() - offset;
  }
  /// Up to 16 bytes.
  bool Matches(std::uint64_t offset, const char* text, std::size_t size) const;
  unsigned char Byte(std::uint64_t offset) const;
  /// Of `bytes` bytes, 1 to 8.
  std::uint64_t Big(std::uint64_t offset, int bytes) const;
  std::uint64_t Little(std::uint64_t offset, int bytes) const;
  std::uint64_t Number(std::uint64_t offset, int bytes, bool isLittle) const {
    return isLittle ? Little(offset, bytes) : Big(offset, bytes);
  }
  std::int64_t LittleSigned32(std::uint64_t offset) const {
    return static_cast<std::int32_t>(Little(offset, 4));
  }

 private:
  bool Read(std::uint64_t offset, void* out, std::size_t size) const;

  const PictureBytes& file_;
  /// The piece of the file that was asked for last, so that walking byte by byte costs no system calls.
  mutable unsigned char piece_[4096];
  mutable std::uint64_t pieceAt_ = 0;
  mutable std::size_t pieceSize_ = 0;
};

// Each fills all but the format; false where the header can't be followed.
bool ReadPngSize(const HeaderCursor& file, PictureHeader& header);
bool ReadJpegSize(const HeaderCursor& file, PictureHeader& header);
bool ReadExrSize(const HeaderCursor& file, PictureHeader& header);
bool ReadTiffSize(const HeaderCursor& file, PictureHeader& header);
bool ReadHdrSize(const HeaderCursor& file, PictureHeader& header);
bool ReadPsdSize(const HeaderCursor& file, PictureHeader& header);
bool ReadBmpSize(const HeaderCursor& file, PictureHeader& header);
bool ReadDdsSize(const HeaderCursor& file, PictureHeader& header);
bool ReadGifSize(const HeaderCursor& file, PictureHeader& header);
bool ReadWebpSize(const HeaderCursor& file, PictureHeader& header);
bool ReadJpeg2000Size(const HeaderCursor& file, PictureHeader& header);
bool ReadDpxSize(const HeaderCursor& file, PictureHeader& header);
bool ReadCineonSize(const HeaderCursor& file, PictureHeader& header);
bool ReadSgiSize(const HeaderCursor& file, PictureHeader& header);
bool ReadIffSize(const HeaderCursor& file, PictureHeader& header);
bool ReadPnmSize(const HeaderCursor& file, PictureHeader& header);
bool ReadTargaSize(const HeaderCursor& file, PictureHeader& header);

}  // namespace ovhost
