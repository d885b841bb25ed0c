// Writes grey PNGs (Portable Network Graphics, second edition, 2003). Bands of rows are deflated one by one
// and make one stream.
#include "host/raster/grey_png.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/base/atomic_file.h"
#include "host/raster/workers.h"

namespace ovhost {
namespace {

constexpr std::int64_t kBandBytes = 1 << 20;
constexpr int kLevel = 5;
constexpr unsigned char kPaeth = 4;

void AppendBigEndian(std::vector<unsigned char>& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<unsigned char>(value >> shift));
}

void WriteChunk(AtomicFile& file, const char* type, const unsigned char* data, std::size_t size) {
  std::vector<unsigned char> head;
  AppendBigEndian(head, static_cast<std::uint32_t>(size));
  head.insert(head.end(), type, type + 4);
  uLong sum = crc32(0, head.data() + 4, 4);
  if (size > 0) sum = crc32_z(sum, data, size);
  std::vector<unsigned char> tail;
  AppendBigEndian(tail, static_cast<std::uint32_t>(sum));
  file.Write(head.data(), head.size());
  file.Write(data, size);
  file.Write(tail.data(), tail.size());
}

unsigned char Paeth(int left, int above, int corner) {
  const int dl = std::abs(above - corner), da = std::abs(left - corner);
  const int dc = std::abs(left + above - 2 * corner);
  return static_cast<unsigned char>(dl <= da && dl <= dc ? left : da <= dc ? above : corner);
}

/// A band of rows on its way into the file, and the scratch memory for it.
struct Band {
  std::vector<std::uint16_t> values;
  std::vector<unsigned char> above, row, filtered, packed;
  uLong adler = 1;
  bool isPacked = false;

  void FetchRow(const GreyPng& picture, std::int64_t y, std::vector<unsigned char>& bytes) {
    values.resize(static_cast<std::size_t>(picture.width));
    picture.row(y, values.data());
    const std::size_t step = static_cast<std::size_t>(picture.bits / 8);
    bytes.resize(values.size() * step);
    for (std::size_t i = 0; i < values.size(); ++i) {
      bytes[i * step] = static_cast<unsigned char>(step == 2 ? values[i] >> 8 : values[i]);
      bytes[i * step + step - 1] = static_cast<unsigned char>(values[i]);
    }
  }

  void Filter(const GreyPng& picture, std::int64_t begin, std::int64_t end) {
    const std::size_t step = static_cast<std::size_t>(picture.bits / 8);
    const std::size_t rowBytes = static_cast<std::size_t>(picture.width) * step;
    if (begin > 0)
      FetchRow(picture, begin - 1, above);
    else
      above.assign(rowBytes, 0);
    filtered.resize((rowBytes + 1) * static_cast<std::size_t>(end - begin));
    unsigned char* out = filtered.data();
    for (std::int64_t y = begin; y < end; ++y) {
      FetchRow(picture, y, row);
      *out++ = kPaeth;
      for (std::size_t i = 0; i < step; ++i) *out++ = static_cast<unsigned char>(row[i] - above[i]);
      for (std::size_t i = step; i < rowBytes; ++i)
        *out++ = static_cast<unsigned char>(row[i] - Paeth(row[i - step], above[i], above[i - step]));
      above.swap(row);
    }
  }

  /// Raw deflate, ended on a byte so that the next band can follow.
  void Deflate(bool isLast) {
    z_stream stream{};
    isPacked = deflateInit2(&stream, kLevel, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
    if (!isPacked) return;
    packed.resize(deflateBound(&stream, static_cast<uLong>(filtered.size())) + 16);
    stream.next_in = filtered.data();
    stream.avail_in = static_cast<uInt>(filtered.size());
    stream.next_out = packed.data();
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    isPacked = stream.avail_in == 0 && result == (isLast ? Z_STREAM_END : Z_OK);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    adler = adler32_z(1, filtered.data(), filtered.size());
  }
};

void WriteHead(AtomicFile& file, const GreyPng& picture) {
  static constexpr unsigned char kMagic[8] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
  file.Write(kMagic, sizeof kMagic);
  std::vector<unsigned char> header;
  AppendBigEndian(header, static_cast<std::uint32_t>(picture.width));
  AppendBigEndian(header, static_cast<std::uint32_t>(picture.height));
  header.insert(header.end(), {static_cast<unsigned char>(picture.bits), 0, 0, 0, 0});
  WriteChunk(file, "IHDR", header.data(), header.size());
  for (const auto& [key, text] : picture.texts) {
    std::vector<unsigned char> chunk(key.begin(), key.end());
    chunk.push_back(0);
    chunk.insert(chunk.end(), text.begin(), text.end());
    WriteChunk(file, "tEXt", chunk.data(), chunk.size());
  }
}

}  // namespace

std::string WriteGreyPng(const std::string& path, const GreyPng& picture, int threads,
                         const WorkProgress& progress) {
  AtomicFile file(path);
  WriteHead(file, picture);
  const std::int64_t rowBytes = picture.width * picture.bits / 8 + 1;
  const std::int64_t bandRows = std::max<std::int64_t>(kBandBytes / rowBytes, 1);
  const std::int64_t bands = (picture.height + bandRows - 1) / bandRows;
  // Twice as many at a time as there are threads: one that takes longer doesn't keep them all.
  const std::int64_t together = std::min<std::int64_t>(2 * std::max(threads, 1), bands);
  std::vector<Band> batch(static_cast<std::size_t>(together));
  uLong adler = adler32(0, nullptr, 0);
  for (std::int64_t first = 0; first < bands && file.Problem().empty(); first += together) {
    if (!progress.Report(static_cast<double>(first) / static_cast<double>(bands))) return path + ": stopped";
    const std::int64_t count = std::min(together, bands - first);
    RunPieces(threads, count, {}, [&](int, std::int64_t i) {
      const std::int64_t begin = (first + i) * bandRows, end = std::min(begin + bandRows, picture.height);
      Band& band = batch[static_cast<std::size_t>(i)];
      band.Filter(picture, begin, end);
      band.Deflate(first + i + 1 == bands);
      return true;
    });
    for (std::int64_t i = 0; i < count; ++i) {
      Band& band = batch[static_cast<std::size_t>(i)];
      if (!band.isPacked) return path + ": the picture can't be packed";
      adler = adler32_combine(adler, band.adler, static_cast<z_off_t>(band.filtered.size()));
      if (first + i == 0) band.packed.insert(band.packed.begin(), {0x78, 0x9c});
      if (first + i + 1 == bands) AppendBigEndian(band.packed, static_cast<std::uint32_t>(adler));
      WriteChunk(file, "IDAT", band.packed.data(), band.packed.size());
    }
  }
  WriteChunk(file, "IEND", nullptr, 0);
  return file.Commit();
}

}  // namespace ovhost
