#include "atmosphere/cloud_occupancy.h"

#include <algorithm>
#include <new>

void CloudOccupancy::Init(const trVoxelBuffer& cells) {
  near_.reset();
  blocks_.reset();
  if (cells.IsEmpty()) return;
  const int size[3] = {cells.SizeX(), cells.SizeY(), cells.SizeZ()};
  size_t count = 1;
  for (int axis = 0; axis < 3; ++axis) {
    size_[axis] = size[axis];
    numBlocks_[axis] = (size[axis] - 1) / kEdge + 1;
    count *= static_cast<size_t>(numBlocks_[axis]);
  }
  near_.reset(new (std::nothrow)
                  std::atomic<std::uint64_t>[static_cast<size_t>(cells.NumCells() / 64 + 1)]());
  if (near_) blocks_.reset(new (std::nothrow) std::atomic<Block>[count]());
}

void CloudOccupancy::CellsOf(const int block[3], int first[3], int last[3]) const {
  for (int axis = 0; axis < 3; ++axis) {
    first[axis] = std::max(block[axis] * kEdge - 1, 0);
    last[axis] = std::min((block[axis] + 1) * kEdge + 1, size_[axis]);
  }
}

CloudOccupancy::Block CloudOccupancy::Settle(const int block[3]) {
  int first[3], last[3];
  CellsOf(block, first, last);
  Block found = Block::kEmpty;
  for (int z = first[2]; z < last[2]; ++z)
    for (int y = first[1]; y < last[1]; ++y)
      for (int x = first[0]; x < last[0]; ++x) {
        const std::int64_t cell = (std::int64_t(z) * size_[1] + y) * size_[0] + x;
        if (near_[cell >> 6].load(std::memory_order_relaxed) >> (cell & 63) & 1) found = Block::kCloudy;
      }
  blocks_[Index(block)].store(found, std::memory_order_relaxed);
  return found;
}
