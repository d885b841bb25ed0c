// What elevation files claim of their size.
#include "host/raster/codec/claims.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string_view>

namespace ovhost {
namespace {

/// No packer of elevation files makes less than this out of so many bytes: Zstandard's best is 128 KiB in 4
/// bytes.
constexpr double kGreatestCompression = 1 << 15;
/// What a raster may take however short its file, bytes.
constexpr double kSmall = 1 << 26;

/// Formats of plain numbers, and of heights as text.
constexpr std::string_view kPlain[] = {"ENVI", "EHdr",    "GenBin", "BT",    "GTX", "NTv2",
                                       "DTED", "SRTMHGT", "GSBG",   "GS7BG", "PNM", "PDS"};
constexpr std::string_view kText[] = {"AAIGrid", "GRASSASCIIGrid", "GSAG", "ISG"};

template <std::size_t kCount>
bool IsAmong(const std::string& format, const std::string_view (&formats)[kCount]) {
  return std::find(std::begin(formats), std::end(formats), format) != std::end(formats);
}

/// A TGA's header (Truevision 1989), as far as it matters here.
struct TgaHeader {
  unsigned char bytes[18] = {};
  std::int64_t Short(int at) const { return bytes[at] | bytes[at + 1] << 8; }
  bool IsPacked() const { return bytes[2] & 8; }
  std::int64_t PixelBytes() const { return (bytes[16] + 7) / 8; }
  std::int64_t Pixels() const { return Short(12) * Short(14); }
  /// Where the pixels begin, behind an identification and a palette.
  std::int64_t Begin() const {
    return 18 + bytes[0] + (bytes[1] ? Short(5) * ((bytes[7] + 7) / 8) : std::int64_t{0});
  }
};

/// Pixels that the packets of run lengths make, `wanted` at most.
std::int64_t CountPacked(std::istream& in, std::int64_t wanted, std::int64_t pixelBytes) {
  std::int64_t pixels = 0;
  while (pixels < wanted) {
    const int packet = in.get();
    if (packet < 0) break;
    const std::int64_t count = (packet & 127) + 1, bytes = packet & 128 ? pixelBytes : count * pixelBytes;
    in.ignore(bytes);
    if (in.gcount() != bytes) break;
    pixels += count;
  }
  return pixels;
}

}  // namespace

std::string ClaimProblem(const RasterClaim& claim) {
  const double points = static_cast<double>(claim.width) * static_cast<double>(claim.height);
  const double bytes = points * static_cast<double>(claim.bands) * claim.bits / 8;
  const auto held = static_cast<double>(claim.fileBytes);
  // Numbers of one digit, with something between them.
  if ((IsAmong(claim.format, kPlain) && bytes > held) ||
      (IsAmong(claim.format, kText) && 2 * points - 1 > held))
    return "it is cut off";
  if (points * claim.bits / 8 > std::max(kSmall, held * kGreatestCompression))
    return "a file of this length can't hold " + std::to_string(claim.width) + " x " +
           std::to_string(claim.height) + " points";
  return {};
}

std::string TgaProblem(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  const std::int64_t size = in.tellg();
  in.seekg(0);
  TgaHeader header;
  if (!in.read(reinterpret_cast<char*>(header.bytes), sizeof header.bytes)) return "it can't be read";
  const std::int64_t room = size - header.Begin(), pixels = header.Pixels();
  bool isWhole = pixels * header.PixelBytes() <= room;
  // A packet takes a byte and a pixel at least, and makes 128 at most.
  if (header.IsPacked() && pixels / 128 * (1 + header.PixelBytes()) <= room) {
    in.seekg(header.Begin());
    isWhole = CountPacked(in, pixels, header.PixelBytes()) >= pixels;
  }
  return isWhole ? "" : "it is cut off";
}

}  // namespace ovhost
