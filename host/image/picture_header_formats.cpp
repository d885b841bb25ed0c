// Sizes as the formats' own specifications place them, and what their compressions can do at best.
#include "host/image/picture_header_formats.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ovhost {
namespace {

/// Segments, boxes, chunks: more than any file has, few enough to walk in no time.
constexpr int kMostParts = 10000;
/// What a text header may be long.
constexpr std::uint64_t kLongestTextHeader = 1 << 16;
/// What is not packed; the spare is for a last row that is short.
constexpr double kUnpacked = 1.01;
/// Codes that say even pictures in a few bytes: what no picture was seen to reach.
constexpr double kWithoutLimit = 20000;

std::int64_t Signed(std::uint64_t value) { return static_cast<std::int64_t>(value); }

void Store(PictureHeader& header, std::int64_t channels, std::int64_t channelBytes, double storedBits,
           double greatestCompression) {
  header.channels = channels;
  header.channelBytes = channelBytes;
  header.storedBits = storedBits;
  header.greatestCompression = greatestCompression;
}

/// Decimal digits at `at`, which is moved behind them; at most nine.
std::int64_t TakeDecimal(const HeaderCursor& file, std::uint64_t& at) {
  std::int64_t value = 0;
  for (int digits = 0; digits < 9 && file.Byte(at) >= '0' && file.Byte(at) <= '9'; ++digits)
    value = value * 10 + (file.Byte(at++) - '0');
  return value;
}

}  // namespace

bool HeaderCursor::Read(std::uint64_t offset, void* out, std::size_t size) const {
  if (!Has(offset, size)) return false;
  if (offset < pieceAt_ || offset - pieceAt_ > pieceSize_ || pieceSize_ - (offset - pieceAt_) < size) {
    pieceSize_ = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof piece_, Size() - offset));
    pieceAt_ = offset;
    if (!file_.Read(offset, piece_, pieceSize_)) return pieceSize_ = 0, false;
  }
  std::memcpy(out, piece_ + (offset - pieceAt_), size);
  return true;
}

bool HeaderCursor::Matches(std::uint64_t offset, const char* text, std::size_t size) const {
  char bytes[16];
  return size <= sizeof bytes && Read(offset, bytes, size) && std::memcmp(bytes, text, size) == 0;
}

unsigned char HeaderCursor::Byte(std::uint64_t offset) const {
  unsigned char byte = 0;
  return Read(offset, &byte, 1) ? byte : 0;
}

std::uint64_t HeaderCursor::Big(std::uint64_t offset, int bytes) const {
  unsigned char data[8];
  std::uint64_t value = 0;
  if (!Read(offset, data, static_cast<std::size_t>(bytes))) return 0;
  for (int i = 0; i < bytes; ++i) value = value << 8 | data[i];
  return value;
}

std::uint64_t HeaderCursor::Little(std::uint64_t offset, int bytes) const {
  unsigned char data[8];
  std::uint64_t value = 0;
  if (!Read(offset, data, static_cast<std::size_t>(bytes))) return 0;
  for (int i = bytes; i-- > 0;) value = value << 8 | data[i];
  return value;
}

/// Deflate makes 1032 bytes of one.
bool ReadPngSize(const HeaderCursor& file, PictureHeader& header) {
  if (!file.Matches(12, "IHDR", 4)) return false;
  header.width = Signed(file.Big(16, 4));
  header.height = Signed(file.Big(20, 4));
  const int bits = file.Byte(24), colourType = file.Byte(25);
  const int stored = colourType == 4 ? 2 : colourType == 2 ? 3 : colourType == 6 ? 4 : 1;
  if (bits < 1 || bits > 16) return false;
  Store(header, colourType == 3 ? 4 : stored, bits > 8 ? 2 : 1, bits * stored, 1100);
  return true;
}

/// The first frame header among the segments. A block of 64 takes two bits, or one where there are only
/// means.
bool ReadJpegSize(const HeaderCursor& file, PictureHeader& header) {
  std::uint64_t at = 2;
  for (int part = 0; part < kMostParts && file.Byte(at) == 0xff; ++part) {
    const int marker = file.Byte(at + 1);
    if (marker == 0xff) {
      ++at;
      continue;
    }
    const bool isFrame =
        marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
    const std::uint64_t length = file.Big(at + 2, 2);
    if (length < 2 || marker == 0xda || marker == 0xd9) return false;
    if (isFrame) {
      header.height = Signed(file.Big(at + 5, 2));
      header.width = Signed(file.Big(at + 7, 2));
      const int channels = file.Byte(at + 9);
      Store(header, channels, 1, 8 * channels, 2000);
      return true;
    }
    at += 2 + length;
  }
  return false;
}

/// Lines of text, an empty one, and the resolution: "-Y 480 +X 640". Old run lengths have no limit.
bool ReadHdrSize(const HeaderCursor& file, PictureHeader& header) {
  const std::uint64_t end = std::min(file.Size(), kLongestTextHeader);
  std::uint64_t at = 0;
  while (at + 1 < end && !(file.Byte(at) == '\n' && file.Byte(at + 1) == '\n')) ++at;
  at += 2;
  std::int64_t sides[2];
  for (std::int64_t& side : sides) {
    while (at < end && (file.Byte(at) < '0' || file.Byte(at) > '9') && file.Byte(at) != '\n') ++at;
    side = TakeDecimal(file, at);
  }
  header.height = sides[0];
  header.width = sides[1];
  Store(header, 3, 4, 32, kWithoutLimit);
  return true;
}

bool ReadPsdSize(const HeaderCursor& file, PictureHeader& header) {
  header.height = Signed(file.Big(14, 4));
  header.width = Signed(file.Big(18, 4));
  const std::int64_t channels = Signed(file.Big(12, 2)), bits = Signed(file.Big(22, 2));
  if (bits < 1 || bits > 32) return false;
  Store(header, channels, (bits + 7) / 8, static_cast<double>(bits * channels), 1100);
  return true;
}

/// Runs are 255 pixels in two bytes.
bool ReadBmpSize(const HeaderCursor& file, PictureHeader& header) {
  const std::uint64_t headerBytes = file.Little(14, 4);
  const bool isOld = headerBytes == 12;
  if (!isOld && headerBytes < 40) return false;
  header.width = isOld ? Signed(file.Little(18, 2)) : file.LittleSigned32(18);
  // A negative height stands for rows from the top.
  header.height = std::abs(isOld ? Signed(file.Little(20, 2)) : file.LittleSigned32(22));
  const std::uint64_t bits = file.Little(isOld ? 24 : 28, 2), packing = isOld ? 0 : file.Little(30, 4);
  const bool isRuns = packing == 1 || packing == 2;
  Store(header, 4, 1, static_cast<double>(std::min<std::uint64_t>(bits, 32)), isRuns ? 300 : kUnpacked);
  return true;
}

/// Blocks of 16 pixels take 8 bytes or more; smaller levels and sides follow.
bool ReadDdsSize(const HeaderCursor& file, PictureHeader& header) {
  header.height = Signed(file.Little(12, 4));
  header.width = Signed(file.Little(16, 4));
  Store(header, 4, 1, 4, kUnpacked);
  return file.Little(4, 4) == 124;
}

/// The canvas. Entries of LZW's table grow by a byte each up to 4096.
bool ReadGifSize(const HeaderCursor& file, PictureHeader& header) {
  header.width = Signed(file.Little(6, 2));
  header.height = Signed(file.Little(8, 2));
  Store(header, 4, 1, 8, 1500);
  return true;
}

bool ReadWebpSize(const HeaderCursor& file, PictureHeader& header) {
  Store(header, 4, 1, 32, kWithoutLimit);
  if (file.Matches(12, "VP8 ", 4)) {
    header.width = Signed(file.Little(26, 2) & 0x3fff);
    header.height = Signed(file.Little(28, 2) & 0x3fff);
  } else if (file.Matches(12, "VP8L", 4)) {
    const std::uint64_t bits = file.Little(21, 4);
    header.width = Signed(bits & 0x3fff) + 1;
    header.height = Signed(bits >> 14 & 0x3fff) + 1;
  } else if (file.Matches(12, "VP8X", 4)) {
    header.width = Signed(file.Little(24, 3)) + 1;
    header.height = Signed(file.Little(27, 3)) + 1;
  } else {
    return false;
  }
  return true;
}

/// The codestream's SIZ segment, which in a JP2 file lies in a box of its own.
bool ReadJpeg2000Size(const HeaderCursor& file, PictureHeader& header) {
  std::uint64_t at = 0;
  if (!file.Matches(0, "\xff\x4f", 2)) {
    bool isFound = false;
    for (int part = 0; part < kMostParts && file.Has(at, 8) && !isFound; ++part) {
      std::uint64_t size = file.Big(at, 4), head = 8;
      if (size == 1) size = file.Big(at + 8, 8), head = 16;
      isFound = file.Matches(at + 4, "jp2c", 4);
      if (!isFound && (size < head || !file.Has(at, size))) return false;
      at += isFound ? head : size;
    }
    if (!isFound) return false;
  }
  if (!file.Matches(at, "\xff\x4f\xff\x51", 4)) return false;
  header.width = Signed(file.Big(at + 8, 4)) - Signed(file.Big(at + 16, 4));
  header.height = Signed(file.Big(at + 12, 4)) - Signed(file.Big(at + 20, 4));
  // Tiles may reach over the picture, which then is all that is decoded of them. The decoder works in 32
  // bits.
  const std::int64_t channels = Signed(file.Big(at + 40, 2));
  Store(header, channels, 4, static_cast<double>(8 * channels), kWithoutLimit);
  return true;
}

bool ReadDpxSize(const HeaderCursor& file, PictureHeader& header) {
  const bool isLittle = file.Byte(0) == 'X';
  header.width = Signed(file.Number(772, 4, isLittle));
  header.height = Signed(file.Number(776, 4, isLittle));
  const int bits = file.Byte(803);
  const bool isRuns = file.Number(804 + 2, 2, isLittle) == 1;
  // How many channels a pixel has is told by a table of kinds; one at least.
  Store(header, 4, bits > 16 ? 4 : 2, bits, isRuns ? 300 : kUnpacked);
  return true;
}

bool ReadCineonSize(const HeaderCursor& file, PictureHeader& header) {
  const bool isLittle = file.Byte(0) == 0xd7;
  header.width = Signed(file.Number(200, 4, isLittle));
  header.height = Signed(file.Number(204, 4, isLittle));
  const int channels = std::max<int>(file.Byte(193), 1);
  Store(header, channels, 2, file.Byte(198) * channels, kUnpacked);
  return true;
}

/// Rows may share one run-length code, so that a row takes 8 bytes of tables at least.
bool ReadSgiSize(const HeaderCursor& file, PictureHeader& header) {
  header.width = Signed(file.Big(6, 2));
  header.height = std::max<std::int64_t>(Signed(file.Big(8, 2)), 1);
  const std::int64_t channels = std::max<std::int64_t>(Signed(file.Big(10, 2)), 1), bytes = file.Byte(3);
  Store(header, channels, bytes, static_cast<double>(8 * bytes * channels),
        file.Byte(2) == 0 ? kUnpacked : 10000);
  return bytes == 1 || bytes == 2;
}

/// The header's chunk is among the first of the form.
bool ReadIffSize(const HeaderCursor& file, PictureHeader& header) {
  constexpr int kMostChunks = 64;
  std::uint64_t at = 12;
  for (int part = 0; part < kMostChunks && !file.Matches(at, "TBHD", 4); ++part) {
    const std::uint64_t size = file.Big(at + 4, 4);
    if (!file.Has(at, 8 + size)) return false;
    at += 8 + (size + 3) / 4 * 4;
  }
  if (!file.Matches(at, "TBHD", 4)) return false;
  header.width = Signed(file.Big(at + 8, 4));
  header.height = Signed(file.Big(at + 12, 4));
  Store(header, 4, 2, 24, 300);
  return true;
}

/// Two numbers in text, with blanks and comments before each; then the greatest value, or the scale.
bool ReadPnmSize(const HeaderCursor& file, PictureHeader& header) {
  const std::uint64_t end = std::min(file.Size(), kLongestTextHeader);
  std::uint64_t at = 2;
  const auto take = [&] {
    while (at < end && (file.Byte(at) <= ' ' || file.Byte(at) == '#'))
      if (file.Byte(at++) == '#')
        while (at < end && file.Byte(at) != '\n') ++at;
    return TakeDecimal(file, at);
  };
  header.width = take();
  header.height = take();
  const char kind = static_cast<char>(file.Byte(1));
  const bool isFloat = kind == 'F' || kind == 'f', isBitmap = kind == '1' || kind == '4';
  const int channels = kind == '3' || kind == '6' || kind == 'F' ? 3 : 1;
  const int bytes = isFloat ? 4 : isBitmap ? 1 : take() > 255 ? 2 : 1;
  // Numbers in text are a digit and a blank at least, bits in text a digit.
  const double bits = kind == '4' ? 1 : kind == '1' ? 8 : kind == '2' || kind == '3' ? 16 : 8 * bytes;
  Store(header, channels, bytes, bits * channels, kUnpacked);
  return true;
}

/// A format without a mark: all that the header may hold is checked. Runs are 128 pixels.
bool ReadTargaSize(const HeaderCursor& file, PictureHeader& header) {
  const int mapType = file.Byte(1), imageType = file.Byte(2), bits = file.Byte(16);
  if (!file.Has(0, 18) || mapType > 1 || imageType == 0 ||
      !std::strchr("\x01\x02\x03\x09\x0a\x0b", imageType) ||
      (bits != 8 && bits != 15 && bits != 16 && bits != 24 && bits != 32))
    return false;
  header.width = Signed(file.Little(12, 2));
  header.height = Signed(file.Little(14, 2));
  Store(header, mapType == 1 || bits > 8 ? 4 : 1, 1, (bits + 7) / 8 * 8, imageType > 8 ? 128 : kUnpacked);
  return true;
}

}  // namespace ovhost
