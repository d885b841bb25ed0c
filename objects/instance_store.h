// What a populator keeps of each instance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/transform.h"

/// 96 bytes an instance, in world space.
struct InstanceRecord {
  float boxA[3], boxB[3];  ///< the corners of its box; the first is the lower
  float scale;
  std::int32_t variation;
  float matrix[4][4];  ///< row-major; the last column is where it stands

  trMatrix4x4<double> Matrix() const {
    trMatrix4x4<double> m;
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) m.m[i][j] = matrix[i][j];
    return m;
  }
};
static_assert(sizeof(InstanceRecord) == 96);

/// Records in blocks that are made as they are needed, so that a large population never moves any. Reading is
/// thread-safe while nobody adds.
class InstanceStore {
 public:
  static constexpr std::size_t kBlockSize = 65536, kBlocks = 65536;

  /// Makes the table of blocks, empty. False for want of memory.
  bool Make();
  /// Frees everything.
  void Clear();
  /// False for want of memory, or where the table is full.
  bool Add(const InstanceRecord& record);
  std::int32_t Count() const { return count_; }
  /// Null where there is none.
  const InstanceRecord* Get(long index) const {
    if (index < 0 || index >= count_) return nullptr;
    const auto at = static_cast<std::size_t>(index);
    return &blocks_[at / kBlockSize][at % kBlockSize];
  }
  std::uint64_t Bytes() const;

 private:
  using Block = std::unique_ptr<InstanceRecord[]>;
  std::unique_ptr<Block[]> blocks_;
  std::int32_t count_ = 0;
};
