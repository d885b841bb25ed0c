// Numbers on a regular grid of which most are one background value: what VDB files hold.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/transform.h"

namespace ovhost {

/// Bricks of 8 by 8 by 8 voxels behind a table. Voxel centres have integer coordinates. Once made it is
/// thread-safe.
class SparseGrid {
 public:
  static constexpr int kEdge = 8, kCells = 512;
  enum class Interpolation { kNearest, kLinear, kQuadratic };

  /// Bricks from `first` on, `count` along each axis, all background.
  void Init(const int first[3], const int count[3], float background);
  bool IsEmpty() const { return table_.empty(); }
  /// False outside of the box of bricks. Values are x fastest; null for one value.
  bool SetBrick(const int brick[3], const float* values, float value);

  float Value(std::int64_t x, std::int64_t y, std::int64_t z) const;
  float Lookup(const trVector& at, Interpolation interpolation) const;
  /// Means of two by two by two voxels.
  SparseGrid Halved() const;
  int NumBricks(int axis) const { return count_[axis]; }

 private:
  int first_[3] = {0, 0, 0}, count_[3] = {0, 0, 0};
  float background_ = 0;
  /// 0 for the background, n for values from (n - 1) * kCells on, -n for uniform value n - 1.
  std::vector<std::int32_t> table_;
  std::vector<float> values_, uniform_;
};

/// A grid at its place in the world, with coarser ones for wider footprints.
struct OV_API PlacedGrid {
  std::vector<SparseGrid> levels;
  trTransform<double> toWorld;  ///< from coordinates of voxels, metres
  double edge = 1;              ///< of a voxel, metres
  std::int64_t activeCells = 0;

  /// At a point of the world; `footprint` in metres is smoothed away, 0 for none.
  float Lookup(const trVector& world, SparseGrid::Interpolation interpolation, double footprint) const;
};

}  // namespace ovhost
