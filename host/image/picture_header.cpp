// Recognising picture formats, and holding what they claim against the length of the file.
#include "host/image/picture_header.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/image/picture_header_formats.h"

namespace ovhost {
namespace {

/// Pictures up to this size aren't held against the length of their file: the damage is small, and some
/// compressions say an even picture in a few bytes, however large it is.
constexpr double kHarmlessBytes = 1 << 24;

struct Format {
  const char* name;
  bool (*isIt)(const HeaderCursor& file);
  bool (*readSize)(const HeaderCursor& file, PictureHeader& header);
};

template <int N>
bool Begins(const HeaderCursor& file, const char (&magic)[N]) {
  return file.Matches(0, magic, N - 1);
}

const Format kFormats[] = {
    {"png", [](const HeaderCursor& f) { return Begins(f, "\x89PNG\r\n\x1a\n"); }, ReadPngSize},
    {"jpeg", [](const HeaderCursor& f) { return Begins(f, "\xff\xd8\xff"); }, ReadJpegSize},
    {"openexr", [](const HeaderCursor& f) { return Begins(f, "v/1\x01"); }, ReadExrSize},
    {"tiff",
     [](const HeaderCursor& f) {
       return f.Matches(0, "II*\0", 4) || f.Matches(0, "MM\0*", 4) || f.Matches(0, "II+\0", 4) ||
              f.Matches(0, "MM\0+", 4);
     },
     ReadTiffSize},
    {"hdr", [](const HeaderCursor& f) { return Begins(f, "#?"); }, ReadHdrSize},
    {"psd", [](const HeaderCursor& f) { return Begins(f, "8BPS"); }, ReadPsdSize},
    {"bmp", [](const HeaderCursor& f) { return Begins(f, "BM"); }, ReadBmpSize},
    {"dds", [](const HeaderCursor& f) { return Begins(f, "DDS "); }, ReadDdsSize},
    {"gif", [](const HeaderCursor& f) { return Begins(f, "GIF8"); }, ReadGifSize},
    {"webp", [](const HeaderCursor& f) { return Begins(f, "RIFF") && f.Matches(8, "WEBP", 4); },
     ReadWebpSize},
    {"jpeg2000",
     [](const HeaderCursor& f) { return Begins(f, "\xff\x4f\xff\x51") || f.Matches(4, "jP  \r\n\x87\n", 8); },
     ReadJpeg2000Size},
    {"dpx", [](const HeaderCursor& f) { return Begins(f, "SDPX") || Begins(f, "XPDS"); }, ReadDpxSize},
    {"cineon",
     [](const HeaderCursor& f) { return Begins(f, "\x80\x2a\x5f\xd7") || Begins(f, "\xd7\x5f\x2a\x80"); },
     ReadCineonSize},
    {"sgi", [](const HeaderCursor& f) { return Begins(f, "\x01\xda"); }, ReadSgiSize},
    {"iff", [](const HeaderCursor& f) { return Begins(f, "FOR4") && f.Matches(8, "CIMG", 4); }, ReadIffSize},
    {"pnm",
     [](const HeaderCursor& f) {
       return f.Matches(0, "P", 1) && f.Byte(1) && std::strchr("123456Ff", f.Byte(1)) && f.Byte(2) <= ' ';
     },
     ReadPnmSize},
};
const Format kTarga = {"targa", nullptr, ReadTargaSize};

bool HasTargaName(const std::string& path) {
  const std::size_t dot = path.find_last_of("./");
  if (dot == std::string::npos || path[dot] == '/') return false;
  std::string extension = path.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension == "tga" || extension == "tpic";
}

const Format* FindFormat(const HeaderCursor& file, const std::string& path) {
  for (const Format& format : kFormats)
    if (format.isIt(file)) return &format;
  return HasTargaName(path) ? &kTarga : nullptr;
}

}  // namespace

bool PictureFileBytes::Read(std::uint64_t offset, void* out, std::size_t size) const {
  if (offset > size_ || size > size_ - offset) return false;
  for (std::size_t done = 0; done < size;) {
    const ssize_t got =
        pread(file_, static_cast<char*>(out) + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

bool PictureMemoryBytes::Read(std::uint64_t offset, void* out, std::size_t size) const {
  if (offset > size_ || size > size_ - offset) return false;
  if (size > 0) std::memcpy(out, data_ + offset, size);
  return true;
}

double PictureHeader::DecodedBytes() const {
  const double area = std::max(static_cast<double>(width) * static_cast<double>(height), tileArea);
  return area * static_cast<double>(channels) * static_cast<double>(channelBytes);
}

bool ReadPictureHeader(const PictureBytes& file, const std::string& path, PictureHeader& header,
                       std::string& problem) {
  header = {};
  if (file.Size() == 0) return problem = "the file is empty", false;
  const HeaderCursor cursor(file);
  const Format* const format = FindFormat(cursor, path);
  if (!format) return problem = "it is none of the picture formats that are read", false;
  header.format = format->name;
  if (!format->readSize(cursor, header))
    return problem = std::string("it is no ") + format->name + " picture that can be read", false;
  // The library counts in 32 bits; no picture has more channels than a film has layers.
  constexpr std::int64_t kGreatestSide = 0x7fffffff, kMostChannels = 4096;
  if (header.width < 1 || header.height < 1 || header.channels < 1)
    return problem = "it has no pixels that could be used", false;
  // A pixel takes a bit at least, whatever the header says. Tiles of pictures smaller than they are may be as
  // large as is usual.
  constexpr double kLargestUsualTile = 1 << 28;
  const double area = static_cast<double>(header.width) * static_cast<double>(header.height);
  const bool isTileLarge = header.DecodedBytes() > kLargestUsualTile;
  const double stored =
      (isTileLarge ? std::max(area, header.tileArea) : area) * std::max(header.storedBits, 1.0) / 8;
  const bool isTooMuch = header.DecodedBytes() > kHarmlessBytes &&
                         stored > static_cast<double>(file.Size()) * header.greatestCompression;
  if (isTooMuch || header.width > kGreatestSide || header.height > kGreatestSide ||
      header.channels > kMostChannels)
    return problem = "a file of this length can't hold " + std::to_string(header.width) + " x " +
                     std::to_string(header.height) + " pixels",
           false;
  return true;
}

}  // namespace ovhost
