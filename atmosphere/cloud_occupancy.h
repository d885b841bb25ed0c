// Where a layer is sure to have no cloud, by blocks of its voxels.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "core/voxel.h"

/// A block is empty when no cloud is near the middle of any of its cells, nor of the cells round it. What a
/// block is follows from the cells alone, so it doesn't matter who asks first. Thread-safe but for Init.
class CloudOccupancy {
 public:
  static constexpr int kEdge = 2;  ///< of a block, in cells

  /// Starts over, nothing known; without memory, or over no cells, IsReady stays false.
  void Init(const trVoxelBuffer& cells);
  bool IsReady() const { return blocks_ != nullptr; }
  /// Cloud is near the middle of a cell, told while that is baked. Cells are numbered as trVoxelCache does.
  void MarkNear(std::int64_t cell) {
    near_[cell >> 6].fetch_or(std::uint64_t(1) << (cell & 63), std::memory_order_relaxed);
  }

  enum class Block : std::uint8_t { kUnknown, kEmpty, kCloudy };
  Block At(const int block[3]) const { return blocks_[Index(block)].load(std::memory_order_relaxed); }
  /// Of a block that was unknown, once all its cells and those round it are baked: from first up to last.
  Block Settle(const int block[3]);
  void CellsOf(const int block[3], int first[3], int last[3]) const;

 private:
  size_t Index(const int block[3]) const {
    return (static_cast<size_t>(block[2]) * numBlocks_[1] + block[1]) * numBlocks_[0] + block[0];
  }
  int size_[3] = {0, 0, 0}, numBlocks_[3] = {0, 0, 0};
  std::unique_ptr<std::atomic<std::uint64_t>[]> near_;
  std::unique_ptr<std::atomic<Block>[]> blocks_;
};
