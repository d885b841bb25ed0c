// Walks the parts of encoded pictures: chunks, strips, markers.
#include "host/image/encoded_picture.h"

#include <iterator>

#include "host/image/picture_header_formats.h"

namespace ovhost {
namespace {

bool IsWholePng(const HeaderCursor& file) {
  for (std::uint64_t at = 8; file.Has(at, 12);) {
    const std::uint64_t next = at + 12 + file.Big(at, 4);
    if (file.Matches(at + 4, "IEND", 4)) return next == file.Size();
    at = next;
  }
  return false;
}

bool IsWholeJpeg(const HeaderCursor& file) { return file.Matches(file.Size() - 2, "\xff\xd9", 2); }

/// All tags' values and all strips lie inside.
bool IsWholeTiff(const HeaderCursor& file) {
  const bool isLittle = file.Byte(0) == 'I', isBig = file.Number(2, 2, isLittle) == 43;
  const std::uint64_t directory = isBig ? file.Number(8, 8, isLittle) : file.Number(4, 4, isLittle),
                      countBytes = isBig ? 8 : 2, entryBytes = isBig ? 20 : 12, valueAt = isBig ? 12 : 8;
  struct List {
    std::uint64_t at = 0, count = 0;
    int bytes = 0;
  } offsets, lengths;
  const auto list = [&](std::uint64_t entry) {
    const std::uint64_t type = file.Number(entry + 2, 2, isLittle),
                        count = file.Number(entry + 4, isBig ? 8 : 4, isLittle);
    const int bytes = type == 3 ? 2 : type == 16 ? 8 : 4;
    const bool isInPlace = count <= (isBig ? 8u : 4u) / static_cast<unsigned>(bytes);
    const std::uint64_t at = entry + valueAt;
    return List{isInPlace ? at : file.Number(at, isBig ? 8 : 4, isLittle), count, bytes};
  };
  const std::uint64_t count = file.Number(directory, static_cast<int>(countBytes), isLittle);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t entry = directory + countBytes + i * entryBytes;
    if (!file.Has(entry, entryBytes)) return false;
    constexpr unsigned kTypeBytes[] = {1, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 1, 1, 8, 8, 8};
    const std::uint64_t type = file.Number(entry + 2, 2, isLittle),
                        numbers = file.Number(entry + 4, isBig ? 8 : 4, isLittle);
    if (type >= std::size(kTypeBytes) || numbers > file.Size()) return false;
    if (const std::uint64_t bytes = numbers * kTypeBytes[type];
        bytes > (isBig ? 8u : 4u) && !file.Has(file.Number(entry + valueAt, isBig ? 8 : 4, isLittle), bytes))
      return false;
    const std::uint64_t tag = file.Number(entry, 2, isLittle);
    if (tag == 273 || tag == 324) offsets = list(entry);
    if (tag == 279 || tag == 325) lengths = list(entry);
  }
  if (offsets.count == 0 || offsets.count != lengths.count) return false;
  for (std::uint64_t i = 0; i < offsets.count; ++i) {
    const auto number = [&](const List& of) {
      return file.Number(of.at + i * static_cast<std::uint64_t>(of.bytes), of.bytes, isLittle);
    };
    const std::uint64_t offset = number(offsets), length = number(lengths);
    if (offset == 0 || length == 0 || !file.Has(offset, length)) return false;
  }
  return true;
}

/// Where the attributes of an OpenEXR end; past the file's end where they don't.
std::uint64_t ExrTable(const HeaderCursor& file) {
  std::uint64_t at = 8;
  while (file.Byte(at) != 0) {
    for (int text = 0; text < 2; ++text) {
      while (file.Byte(at) != 0) ++at;
      ++at;
    }
    const std::uint64_t size = file.Little(at, 4);
    at += 4;
    if (!file.Has(at, size)) return file.Size() + 1;
    at += size;
  }
  return at + 1;
}

/// Blocks of 16 lines, as the compression that is written has them, each found by a table after the
/// attributes. Those of deep files have a line each: its number, the bytes of a table of counts and of the
/// samples, how many these are unpacked, then both.
bool IsWholeExr(const HeaderCursor& file, std::int64_t height) {
  constexpr std::uint64_t kIsDeep = 0x800;
  const bool isDeep = file.Little(4, 4) & kIsDeep;
  const std::int64_t lines = isDeep ? 1 : 16;
  const std::uint64_t headBytes = isDeep ? 28 : 8;
  std::uint64_t at = ExrTable(file);
  for (std::int64_t block = 0; block < (height + lines - 1) / lines; ++block, at += 8) {
    const std::uint64_t offset = file.Little(at, 8);
    if (offset == 0 || !file.Has(offset, headBytes)) return false;
    std::uint64_t bytes = file.Little(offset + 4, isDeep ? 8 : 4);
    if (bytes == 0 || !file.Has(offset + headBytes, bytes)) return false;
    if (isDeep && !file.Has(offset + headBytes + bytes, file.Little(offset + 12, 8))) return false;
  }
  return true;
}

}  // namespace

std::string EncodedProblem(const std::string& path, const void* data, std::uint64_t bytes, int width,
                           int height) {
  const PictureMemoryBytes memory(data, bytes);
  PictureHeader header;
  std::string problem;
  if (!ReadPictureHeader(memory, path, header, problem)) return "what was encoded is no picture: " + problem;
  if (header.width != width || header.height != height)
    return "what was encoded has " + std::to_string(header.width) + " x " + std::to_string(header.height) +
           " pixels";
  const HeaderCursor file(memory);
  const std::string format = header.format;
  const bool isWhole = format == "png"       ? IsWholePng(file)
                       : format == "jpeg"    ? IsWholeJpeg(file)
                       : format == "tiff"    ? IsWholeTiff(file)
                       : format == "openexr" ? IsWholeExr(file, height)
                                             : false;
  return isWhole ? "" : "what was encoded is incomplete";
}

}  // namespace ovhost
