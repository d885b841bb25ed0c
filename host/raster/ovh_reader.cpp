// Reads .ovh files. Every number of theirs is checked before it is used.
#include "host/raster/ovh_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "host/raster/ovh_layout.h"
#include "host/raster/ovh_tile.h"

namespace ovhost {
namespace {

using ovh::Header;
using ovh::IndexEntry;

class FileBytes : public ByteSource {
 public:
  explicit FileBytes(int file) : file_(file) {}
  ~FileBytes() override { close(file_); }
  bool FindSize() {
    struct stat info;
    if (fstat(file_, &info) != 0 || !S_ISREG(info.st_mode)) return false;
    size_ = static_cast<std::uint64_t>(info.st_size);
    return true;
  }
  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::uint64_t size) const override {
    for (char* at = static_cast<char*>(out); size > 0;) {
      const ssize_t got =
          pread(file_, at, std::min<std::uint64_t>(size, 1u << 30), static_cast<off_t>(offset));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      at += got;
      offset += static_cast<std::uint64_t>(got);
      size -= static_cast<std::uint64_t>(got);
    }
    return true;
  }

 private:
  int file_;
  std::uint64_t size_ = 0;
};

std::uint32_t Checksum(const void* data, std::size_t size) {
  return static_cast<std::uint32_t>(crc32_z(crc32_z(0, nullptr, 0), static_cast<const Bytef*>(data), size));
}

bool IsPositive(double v) { return std::isfinite(v) && v > 0; }

/// Empty, or what is wrong with it.
std::string HeaderProblem(const Header& header, std::uint64_t fileSize) {
  if (std::memcmp(header.magic, ovh::kMagic, sizeof ovh::kMagic) != 0) return "it isn't a heightfield file";
  if (header.version != ovh::kVersion)
    return "it is of version " + std::to_string(header.version) + ", which isn't known";
  if (header.checksum != Checksum(&header, offsetof(Header, checksum))) return "its header is damaged";
  if (header.headerBytes < sizeof(Header)) return "its header is too short";
  if (header.width < 1 || header.height < 1 || header.width > INT32_MAX || header.height > INT32_MAX)
    return "it has no points, or too many";
  if (!std::has_single_bit(header.tile) || header.tile < ovh::kLeastTile || header.tile > ovh::kGreatestTile)
    return "its tiles have an impossible size";
  if (!IsPositive(header.xScale) || !IsPositive(header.yScale) || !IsPositive(header.zScale))
    return "its scales aren't positive";
  for (const double angle : {header.south, header.west, header.north, header.east})
    if (!std::isfinite(angle) || std::fabs(angle) > 1e3) return "its corners are no angles";
  const std::uint64_t tiles = std::uint64_t{(header.width + header.tile - 1) / header.tile} *
                              ((header.height + header.tile - 1) / header.tile);
  if (header.indexOffset > fileSize || tiles > (fileSize - header.indexOffset) / sizeof(IndexEntry))
    return "it is cut off";
  return {};
}

class OvhSource : public RasterSource {
 public:
  explicit OvhSource(std::unique_ptr<ByteSource> bytes) : bytes_(std::move(bytes)) {}
  bool Open(std::string& problem);
  bool Read(const RasterRows& part, float* out, std::ptrdiff_t stride, std::string& problem) override;

 private:
  bool ReadIndex(std::string& problem);
  void SetInfo();
  bool ReadTile(std::uint32_t column, std::uint32_t row, std::string& problem);
  int TileWidth(std::uint32_t column) const {
    return static_cast<int>(std::min(header_.tile, header_.width - column * header_.tile));
  }
  int TileRows(std::uint32_t row) const {
    return static_cast<int>(std::min(header_.tile, header_.height - row * header_.tile));
  }

  std::unique_ptr<ByteSource> bytes_;
  Header header_{};
  std::uint32_t columns_ = 0, rows_ = 0;
  std::vector<IndexEntry> index_;
  std::vector<unsigned char> packed_;
  std::vector<float> tile_;
  OvhScratch scratch_;
};

bool OvhSource::Open(std::string& problem) {
  if (bytes_->Size() < sizeof(Header) || !bytes_->Read(0, &header_, sizeof header_))
    return problem = "it is cut off", false;
  problem = HeaderProblem(header_, bytes_->Size());
  if (!problem.empty() || !ReadIndex(problem)) return false;
  SetInfo();
  return true;
}

bool OvhSource::ReadIndex(std::string& problem) {
  columns_ = (header_.width + header_.tile - 1) / header_.tile;
  rows_ = (header_.height + header_.tile - 1) / header_.tile;
  index_.resize(std::size_t{columns_} * rows_);
  const std::size_t indexBytes = index_.size() * sizeof(IndexEntry);
  if (!bytes_->Read(header_.indexOffset, index_.data(), indexBytes)) return problem = "it is cut off", false;
  if (Checksum(index_.data(), indexBytes) != header_.indexChecksum)
    return problem = "its index is damaged", false;
  // Bounds the memory that a small file can ask for.
  for (std::size_t i = 0; i < index_.size(); ++i) {
    const IndexEntry& entry = index_[i];
    const auto values = static_cast<std::uint64_t>(TileWidth(static_cast<std::uint32_t>(i % columns_))) *
                        static_cast<std::uint64_t>(TileRows(static_cast<std::uint32_t>(i / columns_)));
    if (entry.offset > bytes_->Size() || entry.size > bytes_->Size() - entry.offset)
      return problem = "it is cut off", false;
    if (entry.size < LeastOvhTileBytes(values) || entry.size > values * 5 + 1024)
      return problem = "a tile has an impossible size", false;
  }
  return true;
}

void OvhSource::SetInfo() {
  info_.format = "OVH";
  info_.width = header_.width;
  info_.height = header_.height;
  info_.blockRows = header_.tile;
  info_.isRandomAccess = true;
  info_.xScale = header_.xScale;
  info_.yScale = header_.yScale;
  info_.scale = info_.zScale = header_.zScale;
  info_.metresPerHeight = 1;
  info_.hasTransform = true;
  using Reference = RasterInfo::Reference;
  double west = 0, north = header_.yScale * (header_.height - 1.0), dx = header_.xScale, dy = header_.yScale;
  info_.reference = Reference::kMetric;
  if (header_.flags & ovh::kHasCorners) {
    info_.reference = Reference::kGeographic;
    west = header_.west;
    north = header_.north;
    dx = (header_.east - header_.west) / std::max(header_.width - 1.0, 1.0);
    dy = (header_.north - header_.south) / std::max(header_.height - 1.0, 1.0);
  }
  const double transform[6] = {west - dx / 2, dx, 0, north + dy / 2, 0, -dy};
  std::copy(transform, transform + 6, info_.transform);
}

bool OvhSource::ReadTile(std::uint32_t column, std::uint32_t row, std::string& problem) {
  const IndexEntry& entry = index_[std::size_t{row} * columns_ + column];
  packed_.resize(entry.size);
  tile_.resize(static_cast<std::size_t>(TileWidth(column)) * static_cast<std::size_t>(TileRows(row)));
  if (!bytes_->Read(entry.offset, packed_.data(), entry.size)) return problem = "it is cut off", false;
  if (Checksum(packed_.data(), packed_.size()) != entry.checksum ||
      !UnpackOvhTile(packed_.data(), packed_.size(), TileWidth(column), TileRows(row), scratch_,
                     tile_.data()))
    return problem = "tile " + std::to_string(column) + ", " + std::to_string(row) + " is damaged", false;
  return true;
}

bool OvhSource::Read(const RasterRows& part, float* out, std::ptrdiff_t stride, std::string& problem) {
  // The file's rows run from the south.
  const std::int64_t south = header_.height - part.y - part.rows, north = header_.height - part.y - 1;
  const std::int64_t east = part.x + part.width - 1, size = header_.tile;
  for (std::int64_t row = south / size; row <= north / size; ++row)
    for (std::int64_t column = part.x / size; column <= east / size; ++column) {
      if (!ReadTile(static_cast<std::uint32_t>(column), static_cast<std::uint32_t>(row), problem))
        return false;
      const std::int64_t width = TileWidth(static_cast<std::uint32_t>(column));
      const std::int64_t x0 = std::max(part.x, column * size), x1 = std::min(east + 1, column * size + width);
      const std::int64_t y0 = std::max(south, row * size), y1 = std::min(north, row * size + size - 1);
      for (std::int64_t y = y0; y <= y1; ++y)
        std::copy_n(tile_.data() + (y - row * size) * width + (x0 - column * size), x1 - x0,
                    out + (north - y) * stride + (x0 - part.x));
    }
  return true;
}

}  // namespace

std::unique_ptr<ByteSource> OpenBytes(const std::string& path, std::string& problem) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return problem = std::strerror(errno), nullptr;
  auto bytes = std::make_unique<FileBytes>(file);
  if (!bytes->FindSize()) return problem = "it isn't a file", nullptr;
  return bytes;
}

bool IsOvh(const ByteSource& bytes) {
  unsigned char begin[4];
  return bytes.Size() >= sizeof begin && bytes.Read(0, begin, sizeof begin) &&
         std::memcmp(begin, ovh::kMagic, sizeof begin) == 0;
}

std::unique_ptr<RasterSource> OpenOvh(std::unique_ptr<ByteSource> bytes, std::string& problem) {
  auto source = std::make_unique<OvhSource>(std::move(bytes));
  if (!source->Open(problem)) return nullptr;
  return source;
}

}  // namespace ovhost
