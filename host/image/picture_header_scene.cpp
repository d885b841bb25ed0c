// Sizes of the formats whose headers are lists of tags: OpenEXR and TIFF.
#include <algorithm>
#include <string>

#include "host/image/picture_header_formats.h"

namespace ovhost {
namespace {

// --- OpenEXR: attributes, each NAME 0 TYPE 0 SIZE VALUE

constexpr int kMostAttributes = 10000;

/// Text up to a 0, at most 255 characters; moves `at` behind it.
bool TakeName(const HeaderCursor& file, std::uint64_t& at, std::string& name) {
  constexpr std::size_t kLongest = 255;
  name.clear();
  while (name.size() <= kLongest) {
    const unsigned char c = file.Byte(at++);
    if (c == 0) return true;
    name += static_cast<char>(c);
  }
  return false;
}

/// Channels are NAME 0, then pixel type, a flag and two steps of sampling, 4 bytes each; an empty name ends
/// the list.
bool ReadExrChannels(const HeaderCursor& file, std::uint64_t at, std::uint64_t end, PictureHeader& header) {
  constexpr std::int64_t kMost = 100000;
  std::string name;
  while (at < end && TakeName(file, at, name) && !name.empty()) {
    const bool isHalf = file.Little(at, 4) == 1;
    const double step = static_cast<double>(std::max<std::uint64_t>(file.Little(at + 8, 4), 1)) *
                        static_cast<double>(std::max<std::uint64_t>(file.Little(at + 12, 4), 1));
    header.storedBits += (isHalf ? 16 : 32) / step;
    at += 16;
    if (++header.channels > kMost) return false;
  }
  return header.channels > 0;
}

/// By the number of the compression: none, RLE, ZIP of a line, ZIP, PIZ, PXR24, B44, B44A, DWAA, DWAB.
/// Deflate makes 1032 bytes of one; DWA deflates what stands for blocks of 64 pixels.
double ExrCompression(unsigned number) {
  constexpr double kMost[] = {1, 70, 1100, 1100, 1100, 1500, 16, 16, 70000, 70000};
  return number < std::size(kMost) ? kMost[number] : 70000;
}

// --- TIFF

/// The value of a directory's entry: a whole number of its type, at the front of a field of 4 or 8 bytes.
std::int64_t TiffValue(const HeaderCursor& file, std::uint64_t entry, std::uint64_t at, bool isLittle,
                       bool isBig) {
  const std::uint64_t type = file.Number(entry + 2, 2, isLittle);
  const int bytes = type == 1 ? 1 : type == 3 ? 2 : isBig && type == 16 ? 8 : 4;
  const std::uint64_t value = file.Number(at, bytes, isLittle);
  return static_cast<std::int64_t>(std::min<std::uint64_t>(value, 1ULL << 62));
}

/// By the number of the compression. Entries of LZW's table grow by a byte each up to 4096; runs of PackBits
/// are 128 bytes. Fax codes and the rest may say a row in a bit: there it is what no picture reaches.
double TiffCompression(std::int64_t number) {
  switch (number) {
    case 1:
      return 4;  // colours may be stored at half the places
    case 5:
      return 1500;
    case 6:
    case 7:
      return 2000;
    case 8:
    case 32946:
      return 1100;
    case 32773:
      return 70;
    default:
      return 40000;
  }
}

}  // namespace

bool ReadExrSize(const HeaderCursor& file, PictureHeader& header) {
  std::uint64_t at = 8;
  bool hasWindow = false;
  const auto side = [&file](std::uint64_t from) {
    return file.LittleSigned32(from + 8) - file.LittleSigned32(from) + 1;
  };
  header.channelBytes = 4;
  for (int part = 0; part < kMostAttributes && file.Has(at, 1); ++part) {
    std::string name, type;
    if (!TakeName(file, at, name)) return false;
    if (name.empty()) {
      // Pixels of deep files may have no samples, but a count.
      constexpr std::uint64_t kIsDeep = 0x800;
      if (file.Little(4, 4) & kIsDeep) header.storedBits = 32;
      return hasWindow && header.channels > 0;
    }
    if (!TakeName(file, at, type)) return false;
    const std::uint64_t size = file.Little(at, 4);
    at += 4;
    if (!file.Has(at, size)) return false;
    if (name == "dataWindow" && size == 16) {
      header.width = side(at);
      header.height = side(at + 4);
      hasWindow = true;
    } else if (name == "displayWindow" && size == 16) {
      header.displayArea = static_cast<double>(std::max<std::int64_t>(side(at), 0)) *
                           static_cast<double>(std::max<std::int64_t>(side(at + 4), 0));
    } else if (name == "compression" && size == 1) {
      header.greatestCompression = ExrCompression(file.Byte(at));
    } else if (name == "tiles" && size == 9) {
      header.tileArea = static_cast<double>(file.Little(at, 4)) * static_cast<double>(file.Little(at + 4, 4));
    } else if (name == "channels" && header.channels == 0) {
      if (!ReadExrChannels(file, at, at + size, header)) return false;
    }
    at += size;
  }
  return false;
}

/// The tags of the first directory. Camera raw files look alike, but there that is a preview: not they.
bool ReadTiffSize(const HeaderCursor& file, PictureHeader& header) {
  constexpr std::uint64_t kMostTags = 4096;
  const bool isLittle = file.Byte(0) == 'I', isBig = file.Number(2, 2, isLittle) == 43;
  if (file.Matches(8, "CR\x02", 3)) return false;
  const std::uint64_t directory = isBig ? file.Number(8, 8, isLittle) : file.Number(4, 4, isLittle);
  const std::uint64_t countBytes = isBig ? 8 : 2, entryBytes = isBig ? 20 : 12, valueAt = isBig ? 12 : 8;
  if (!file.Has(directory, countBytes)) return false;
  const std::uint64_t count =
      std::min(file.Number(directory, static_cast<int>(countBytes), isLittle), kMostTags);
  std::int64_t bits = 1, tileWidth = 0, tileHeight = 0;
  bool hasPalette = false;
  header.channels = 1;
  header.greatestCompression = TiffCompression(1);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t entry = directory + countBytes + i * entryBytes, at = entry + valueAt;
    if (!file.Has(entry, entryBytes)) return false;
    const std::int64_t value = TiffValue(file, entry, at, isLittle, isBig);
    switch (file.Number(entry, 2, isLittle)) {
      case 254:  // a smaller picture of another
        if (value & 1) return false;
        break;
      case 256:
        header.width = value;
        break;
      case 257:
        header.height = value;
        break;
      case 258: {
        // Bits of a sample: a few numbers in place, or elsewhere; the first stands for all.
        const std::uint64_t numbers = file.Number(entry + 4, isBig ? 8 : 4, isLittle);
        const bool isInPlace = numbers <= (isBig ? 4u : 2u);
        bits = static_cast<std::int64_t>(
            file.Number(isInPlace ? at : file.Number(at, isBig ? 8 : 4, isLittle), 2, isLittle));
        break;
      }
      case 259:
        header.greatestCompression = TiffCompression(value);
        break;
      case 262:
        hasPalette = value == 3;
        break;
      case 277:
        header.channels = value;
        break;
      case 322:
        tileWidth = value;
        break;
      case 323:
        tileHeight = value;
        break;
      case 50706:  // the version of a digital negative
        return false;
      default:
        break;
    }
  }
  bits = std::clamp<std::int64_t>(bits, 1, 128);
  header.storedBits = static_cast<double>(bits) * static_cast<double>(header.channels);
  header.tileArea = static_cast<double>(tileWidth) * static_cast<double>(tileHeight);
  header.channelBytes = (bits + 7) / 8;
  if (hasPalette) header.channels = std::max<std::int64_t>(header.channels, 3);
  return true;
}

}  // namespace ovhost
