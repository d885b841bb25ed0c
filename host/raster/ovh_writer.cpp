// Writes .ovh files.
#include "host/raster/ovh_writer.h"

#include <zlib.h>

#include <algorithm>
#include <cstddef>

#include "host/base/atomic_file.h"
#include "host/raster/ovh_layout.h"
#include "host/raster/ovh_tile.h"
#include "host/raster/workers.h"

namespace ovhost {
namespace {

using ovh::Header;
using ovh::IndexEntry;

std::uint32_t Checksum(const void* data, std::size_t size) {
  return static_cast<std::uint32_t>(crc32_z(crc32_z(0, nullptr, 0), static_cast<const Bytef*>(data), size));
}

Header HeaderOf(const HeightGrid& grid) {
  Header header{};
  std::copy(std::begin(ovh::kMagic), std::end(ovh::kMagic), header.magic);
  header.version = ovh::kVersion;
  header.headerBytes = sizeof header;
  header.width = static_cast<std::uint32_t>(grid.width);
  header.height = static_cast<std::uint32_t>(grid.height);
  header.tile = ovh::kTile;
  header.xScale = grid.xScale;
  header.yScale = grid.yScale;
  header.zScale = grid.zScale;
  if (grid.hasCorners) {
    header.flags = ovh::kHasCorners;
    header.south = grid.corners.south;
    header.west = grid.corners.west;
    header.north = grid.corners.north;
    header.east = grid.corners.east;
  }
  header.lowest = grid.lowest;
  header.highest = grid.highest;
  return header;
}

/// The tiles of one row of them, packed side by side by all threads.
class TileRow {
 public:
  TileRow(const HeightGrid& grid, int threads) : grid_(grid), threads_(threads) {
    packed_.resize(static_cast<std::size_t>((grid.width + ovh::kTile - 1) / ovh::kTile));
    scratch_.resize(static_cast<std::size_t>(std::max(threads, 1)));
  }

  bool Pack(std::int64_t firstRow) {
    const auto rows = static_cast<int>(std::min<std::int64_t>(ovh::kTile, grid_.height - firstRow));
    return RunPieces(
        threads_, static_cast<std::int64_t>(packed_.size()), {}, [&](int worker, std::int64_t i) {
          const std::int64_t x = i * ovh::kTile;
          const auto width = static_cast<int>(std::min<std::int64_t>(ovh::kTile, grid_.width - x));
          return PackOvhTile(grid_.Row(firstRow) + x, grid_.width, width, rows,
                             scratch_[static_cast<std::size_t>(worker)],
                             packed_[static_cast<std::size_t>(i)]);
        });
  }
  const std::vector<std::vector<unsigned char>>& Packed() const { return packed_; }

 private:
  const HeightGrid& grid_;
  int threads_;
  std::vector<std::vector<unsigned char>> packed_;
  std::vector<OvhScratch> scratch_;
};

}  // namespace

std::string WriteOvh(const std::string& path, const HeightGrid& grid, int threads,
                     const WorkProgress& progress) {
  AtomicFile file(path);
  Header header = HeaderOf(grid);
  file.Write(&header, sizeof header);

  std::vector<IndexEntry> index;
  TileRow row(grid, threads);
  for (std::int64_t y = 0; y < grid.height && file.Problem().empty(); y += ovh::kTile) {
    if (!progress.Report(static_cast<double>(y) / static_cast<double>(grid.height)))
      return path + ": stopped";
    if (!row.Pack(y)) return path + ": a tile can't be packed";
    for (const std::vector<unsigned char>& tile : row.Packed()) {
      index.push_back(
          {file.Size(), static_cast<std::uint32_t>(tile.size()), Checksum(tile.data(), tile.size())});
      file.Write(tile.data(), tile.size());
    }
  }

  header.indexOffset = file.Size();
  header.indexChecksum = Checksum(index.data(), index.size() * sizeof(IndexEntry));
  header.checksum = Checksum(&header, offsetof(Header, checksum));
  file.Write(index.data(), index.size() * sizeof(IndexEntry));
  file.WriteAt(0, &header, sizeof header);
  return file.Commit();
}

}  // namespace ovhost
