// Who owns which ground: a raster in tiles, each of which belongs to one drop at a time or to none.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

#include "heightfield/drop_settings.h"

/// Tiles of a raster by number. Ownership is thread-safe; ground is touched by its owner alone, and what one
/// owner left is seen by the next.
class DropTiles {
 public:
  static constexpr int kSide = 8;  ///< points, a power of two
  static constexpr int kPoints = kSide * kSide;
  using OwnerId = std::uint32_t;  ///< 0 is nobody

  explicit DropTiles(const DropField& field)
      : field_(field),
        columns_((field.width + kSide - 1) / kSide),
        owners_(new std::atomic<OwnerId>[static_cast<std::size_t>(columns_) *
                                         ((field.height + kSide - 1) / kSide)]()) {}

  std::int64_t At(int x, int y) const { return std::int64_t{y / kSide} * columns_ + x / kSide; }

  OwnerId Owner(std::int64_t tile) const { return owners_[tile].load(std::memory_order_acquire); }
  /// False when somebody owns it.
  bool Take(std::int64_t tile, OwnerId owner) {
    OwnerId nobody = 0;
    return owners_[tile].compare_exchange_strong(nobody, owner, std::memory_order_acquire);
  }
  void Release(std::int64_t tile) { owners_[tile].store(0, std::memory_order_release); }

  /// Copies a tile's ground to and from `saved`, kPoints heights; the owner calls these.
  void Save(std::int64_t tile, float* saved) const {
    ForEachRow(tile, [&](float* row, int y, int points) {
      std::memcpy(saved + y * kSide, row, points * sizeof *row);
    });
  }
  void Restore(std::int64_t tile, const float* saved) const {
    ForEachRow(tile, [&](float* row, int y, int points) {
      std::memcpy(row, saved + y * kSide, points * sizeof *row);
    });
  }
  void Prefetch(std::int64_t tile) const {
    ForEachRow(tile, [](const float* row, int, int) { __builtin_prefetch(row); });
  }

 private:
  template <typename Use>
  void ForEachRow(std::int64_t tile, const Use& use) const {
    const int x = static_cast<int>(tile % columns_) * kSide, y = static_cast<int>(tile / columns_) * kSide;
    const int points = std::min(kSide, field_.width - x), rows = std::min(kSide, field_.height - y);
    float* row = field_.heights + std::int64_t{y} * field_.width + x;
    for (int i = 0; i < rows; ++i, row += field_.width) use(row, i, points);
  }

  const DropField field_;
  const int columns_;
  const std::unique_ptr<std::atomic<OwnerId>[]> owners_;
};
