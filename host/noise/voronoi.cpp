// Voronoi distances over one feature a lattice cell (Worley, A Cellular Texture Basis Function, 1996).
#include <algorithm>
#include <limits>

#include "core/noise.h"
#include "host/noise/lattice.h"

using namespace ovnoise;

namespace {

constexpr uint64_t kFeatureSeed = HashSeed(106), kValueSeed = HashSeed(107);

/// The vectors to a point from the features of the cells about it, found in a fixed order.
class FeatureSearch {
 public:
  explicit FeatureSearch(const double* point) : p_(point) {
    for (int axis = 0; axis < 3; ++axis)
      for (int i = -2; i <= 2; ++i) hash_[axis][i + 2] = HashAxis(p_.cell[axis] + i, axis);
  }

  /// Point less the feature of the cell at offset (i, j, k), each -2 to 2.
  trVector ToFeature(int i, int j, int k) const {
    const uint64_t hash = MixCorner(CellSum(i, j, k) + kFeatureSeed);
    return {p_.fraction[0] - i - (OneToTwo(hash) - 1.0), p_.fraction[1] - j - (OneToTwo(hash << 17) - 1.0),
            p_.fraction[2] - k - (OneToTwo(hash << 34) - 1.0)};
  }

  /// -0.5 to 0.5, the random number of a cell.
  double Value(int i, int j, int k) const { return OneToTwo(MixCorner(CellSum(i, j, k) + kValueSeed)) - 1.5; }

  /// Distance from the point to the cell at an offset along one axis, 0 for its own.
  double Gap(int offset, int axis) const {
    if (offset == 0) return 0.0;
    return offset > 0 ? offset - p_.fraction[axis] : p_.fraction[axis] - (offset + 1);
  }

  /// Distance from the point to the nearest cell that isn't one of the 27 about it; at least 1.
  double DistanceToOuterCells() const {
    double d = 2.0;
    for (int axis = 0; axis < 3; ++axis) d = std::min({d, Gap(2, axis), Gap(-2, axis)});
    return d;
  }

 private:
  uint64_t CellSum(int i, int j, int k) const { return hash_[0][i + 2] + hash_[1][j + 2] + hash_[2][k + 2]; }

  CellPoint p_;
  uint64_t hash_[3][5];
};

/// The nearest two so far.
struct NearestTwo {
  double d1 = std::numeric_limits<double>::max(), d2 = d1;  // squared
  trVector to1, to2;
  int cell[3] = {0, 0, 0};

  void Add(const FeatureSearch& search, int i, int j, int k) {
    const trVector to = search.ToFeature(i, j, k);
    const double d = to.LengthSquared();
    if (d < d1) {
      d2 = d1, to2 = to1;
      d1 = d, to1 = to;
      cell[0] = i, cell[1] = j, cell[2] = k;
    } else if (d < d2) {
      d2 = d, to2 = to;
    }
  }
};

/// The ring of cells two away, where only a second feature, rarely a first, can lie nearer than those found.
void SearchOuterCells(const FeatureSearch& search, NearestTwo& nearest) {
  for (int k = -2; k <= 2; ++k)
    for (int j = -2; j <= 2; ++j)
      for (int i = -2; i <= 2; ++i) {
        if (std::max({std::abs(i), std::abs(j), std::abs(k)}) < 2) continue;
        const double gx = search.Gap(i, 0), gy = search.Gap(j, 1), gz = search.Gap(k, 2);
        if (gx * gx + gy * gy + gz * gz < nearest.d2) nearest.Add(search, i, j, k);
      }
}

}  // namespace

template <>
void trVoronoi3<double>(double& value, trVector& toNearest, trVector& toSecond, const double* point) {
  const FeatureSearch search(point);
  NearestTwo nearest;
  for (int k = -1; k <= 1; ++k)
    for (int j = -1; j <= 1; ++j)
      for (int i = -1; i <= 1; ++i) nearest.Add(search, i, j, k);
  const double outer = search.DistanceToOuterCells();
  if (nearest.d2 > outer * outer) SearchOuterCells(search, nearest);
  value = search.Value(nearest.cell[0], nearest.cell[1], nearest.cell[2]);
  toNearest = nearest.to1;
  toSecond = nearest.to2;
}

void trDEV_SmoothVoronoi3(double& result, const double* point, const double& size, const double& invSize) {
  // Features count within a distance of 1, all of which the 27 cells hold, and fade out towards it; one that
  // always stands at 1 with little weight keeps the mean defined where there is no other.
  constexpr double kFarWeight = 0.02;
  // Weights fall by e within half the filter's size.
  const double falloff = size > 1e-9 ? 2.0 * invSize : 2e9;
  const FeatureSearch search(point);
  double distance[27];
  int count = 0;
  double nearest = 1.0;
  for (int k = -1; k <= 1; ++k)
    for (int j = -1; j <= 1; ++j)
      for (int i = -1; i <= 1; ++i) {
        const double squared = search.ToFeature(i, j, k).LengthSquared();
        if (squared >= 1.0) continue;
        distance[count] = std::sqrt(squared);
        nearest = std::min(nearest, distance[count++]);
      }
  const trFastExp fastExp;
  double weight = kFarWeight * fastExp((nearest - 1.0) * falloff);
  double sum = weight;
  for (int i = 0; i < count; ++i) {
    const double inside = 1.0 - distance[i] * distance[i];
    const double w = inside * inside * fastExp((nearest - distance[i]) * falloff);
    weight += w;
    sum += w * distance[i];
  }
  result = sum / weight;
}
