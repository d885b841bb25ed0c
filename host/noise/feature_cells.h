// The lattice cells about a point, each with its Voronoi feature.
#pragma once

#include <algorithm>

#include "core/vector.h"
#include "host/noise/lattice.h"

namespace ovnoise {

/// The 27 cells, filled up to whole vectors.
inline constexpr int kPaddedCells = 32;

/// Offsets of the 27 cells about a point's own, x fastest; the padding lies out of any feature's reach.
struct CellOffsets {
  double axis[3][kPaddedCells];
  constexpr CellOffsets() : axis() {
    for (int c = 0; c < kPaddedCells; ++c) {
      const int place[3] = {c % 3, c / 3 % 3, c / 9};
      for (int i = 0; i < 3; ++i) axis[i][c] = c < 27 ? place[i] - 1 : 1000.0;
    }
  }
};
inline constexpr CellOffsets kCellOffsets;

// The smooth form: features count within a distance of 1, all of which the 27 cells hold, and fade out
// towards it; one that always stands at 1 with little weight keeps the mean defined where there is no other.
// Weights fall by e within half the filter's size, which is no smaller than a point's.
inline constexpr double kFarWeight = 0.02, kPointFilter = 1e-9, kPointFalloff = 2e9;

inline constexpr uint64_t kFeatureSeed = HashSeed(106), kValueSeed = HashSeed(107);

struct FeatureCells {
  CellPoint point;
  uint64_t sum[kPaddedCells] = {};  ///< the cells' summed axis hashes with the features' seed

  explicit FeatureCells(const double* p) : point(p) {
    uint64_t hash[3][3];
    for (int axis = 0; axis < 3; ++axis)
      for (int i = 0; i < 3; ++i) hash[axis][i] = HashAxis(point.cell[axis] + i - 1, axis);
    for (int k = 0; k < 3; ++k)
      for (int j = 0; j < 3; ++j) {
        const uint64_t row = hash[1][j] + hash[2][k] + kFeatureSeed;
        for (int i = 0; i < 3; ++i) sum[9 * k + 3 * j + i] = hash[0][i] + row;
      }
  }

  /// Point less the feature of the cell at an offset from the point's own.
  trVector ToFeature(int i, int j, int k) const {
    const uint64_t hash = MixCorner(AxisSum(i, j, k) + kFeatureSeed);
    return {point.fraction[0] - i - (OneToTwo(hash) - 1.0),
            point.fraction[1] - j - (OneToTwo(hash << 17) - 1.0),
            point.fraction[2] - k - (OneToTwo(hash << 34) - 1.0)};
  }

  /// -0.5 to 0.5, the random number of a cell.
  double Value(int i, int j, int k) const { return OneToTwo(MixCorner(AxisSum(i, j, k) + kValueSeed)) - 1.5; }

  /// Distance from the point to the cell at an offset along one axis, 0 for its own.
  double Gap(int offset, int axis) const {
    if (offset == 0) return 0.0;
    return offset > 0 ? offset - point.fraction[axis] : point.fraction[axis] - (offset + 1);
  }

  /// Distance from the point to the nearest cell that isn't one of the 27; at least 1.
  double DistanceToOuterCells() const {
    double d = 2.0;
    for (int axis = 0; axis < 3; ++axis) d = std::min({d, Gap(2, axis), Gap(-2, axis)});
    return d;
  }

 private:
  uint64_t AxisSum(int i, int j, int k) const {
    return HashAxis(point.cell[0] + i, 0) + HashAxis(point.cell[1] + j, 1) + HashAxis(point.cell[2] + k, 2);
  }
};

}  // namespace ovnoise
