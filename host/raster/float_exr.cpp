// Writes OpenEXR pictures by scan lines (OpenEXR File Layout, 2013), blocks of them deflated one by one.
#include "host/raster/float_exr.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "host/base/atomic_file.h"
#include "host/raster/workers.h"

namespace ovhost {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers go into the file as they lie in memory");

/// Level 4 packs heights within a few percent of the usual 6, in half the time.
constexpr int kLevel = 4;
/// Rows of more points are packed one by one, so that a block stays small.
constexpr std::int64_t kMostPointsTogether = 1 << 20;
constexpr char kZipOneRow = 2, kZip16Rows = 3;

template <typename Number>
void Append(std::string& bytes, Number value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void AppendAttribute(std::string& head, const std::string& name, const char* type, const std::string& data) {
  head += name + '\0' + type + '\0';
  Append(head, static_cast<std::int32_t>(data.size()));
  head += data;
}

std::string Head(const FloatExr& picture, char compression) {
  std::string head = {0x76, 0x2f, 0x31, 0x01, 2, 0, 0, 0};
  std::string channels = picture.channel + '\0';
  constexpr std::int32_t kFloat = 2;
  Append(channels, kFloat);
  Append(channels, std::int32_t{0});  // no matter of perception; reserved
  Append(channels, std::int32_t{1});  // a value for every point
  Append(channels, std::int32_t{1});
  channels += '\0';
  std::string window;
  for (const std::int64_t v : {std::int64_t{0}, std::int64_t{0}, picture.width - 1, picture.height - 1})
    Append(window, static_cast<std::int32_t>(v));
  std::string one, middle;
  Append(one, 1.0f);
  Append(middle, 0.0f);
  Append(middle, 0.0f);

  AppendAttribute(head, "channels", "chlist", channels);
  AppendAttribute(head, "compression", "compression", std::string(1, compression));
  AppendAttribute(head, "dataWindow", "box2i", window);
  AppendAttribute(head, "displayWindow", "box2i", window);
  AppendAttribute(head, "lineOrder", "lineOrder", std::string(1, '\0'));  // from the top
  AppendAttribute(head, "pixelAspectRatio", "float", one);
  AppendAttribute(head, "screenWindowCenter", "v2f", middle);
  AppendAttribute(head, "screenWindowWidth", "float", one);
  for (const auto& [name, text] : picture.attributes) AppendAttribute(head, name, "string", text);
  return head + '\0';
}

/// Rows on their way into the file, and the scratch memory for them.
struct Block {
  std::vector<float> values;
  std::vector<unsigned char> apart, packed;
  bool isPacked = false;  ///< else it is smaller as it is

  void Pack(const FloatExr& picture, std::int64_t begin, std::int64_t end) {
    values.resize(static_cast<std::size_t>(picture.width * (end - begin)));
    for (std::int64_t y = begin; y < end; ++y) picture.row(y, values.data() + (y - begin) * picture.width);

    // First the even bytes, then the odd ones, each as the difference to the one before.
    const auto* const bytes = reinterpret_cast<const unsigned char*>(values.data());
    const std::size_t count = values.size() * sizeof(float), half = count / 2;
    apart.resize(count);
    for (std::size_t i = 0; i < half; ++i) {
      apart[i] = bytes[2 * i];
      apart[half + i] = bytes[2 * i + 1];
    }
    for (std::size_t i = count - 1; i > 0; --i)
      apart[i] = static_cast<unsigned char>(apart[i] - apart[i - 1] + 128);

    uLongf size = compressBound(static_cast<uLong>(count));
    packed.resize(size);
    isPacked = compress2(packed.data(), &size, apart.data(), static_cast<uLong>(count), kLevel) == Z_OK &&
               size < count;
    packed.resize(isPacked ? size : 0);
  }
  const void* Data() const { return isPacked ? static_cast<const void*>(packed.data()) : values.data(); }
  std::size_t Size() const { return isPacked ? packed.size() : values.size() * sizeof(float); }
};

}  // namespace

std::string WriteFloatExr(const std::string& path, const FloatExr& picture, int threads,
                          const WorkProgress& progress) {
  const bool isWide = picture.width > kMostPointsTogether;
  const std::int64_t blockRows = isWide ? 1 : 16, blocks = (picture.height + blockRows - 1) / blockRows;
  AtomicFile file(path);
  const std::string head = Head(picture, isWide ? kZipOneRow : kZip16Rows);
  file.Write(head);
  std::vector<std::uint64_t> offsets(static_cast<std::size_t>(blocks));
  file.Write(offsets.data(), offsets.size() * sizeof offsets[0]);  // room for them

  const std::int64_t together = std::min<std::int64_t>(2 * std::max(threads, 1), blocks);
  std::vector<Block> batch(static_cast<std::size_t>(together));
  for (std::int64_t first = 0; first < blocks && file.Problem().empty(); first += together) {
    if (!progress.Report(static_cast<double>(first) / static_cast<double>(blocks))) return path + ": stopped";
    const std::int64_t count = std::min(together, blocks - first);
    RunPieces(threads, count, {}, [&](int, std::int64_t i) {
      const std::int64_t begin = (first + i) * blockRows;
      batch[static_cast<std::size_t>(i)].Pack(picture, begin, std::min(begin + blockRows, picture.height));
      return true;
    });
    for (std::int64_t i = 0; i < count; ++i) {
      const Block& block = batch[static_cast<std::size_t>(i)];
      offsets[static_cast<std::size_t>(first + i)] = file.Size();
      const std::int32_t start[2] = {static_cast<std::int32_t>((first + i) * blockRows),
                                     static_cast<std::int32_t>(block.Size())};
      file.Write(start, sizeof start);
      file.Write(block.Data(), block.Size());
    }
  }
  file.WriteAt(head.size(), offsets.data(), offsets.size() * sizeof offsets[0]);
  return file.Commit();
}

}  // namespace ovhost
