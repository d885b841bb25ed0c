// Voronoi distances over one feature a lattice cell (Worley, A Cellular Texture Basis Function, 1996). The 27
// cells about a point are looked at in SIMD lanes.
#include <algorithm>
#include <limits>

#include "core/noise.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/voronoi.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "host/noise/feature_cells.h"
#include "host/noise/lattice-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovnoise {
namespace HWY_NAMESPACE {

using FeatureLanes = hn::CappedTag<double, 8>;

/// Squared distances to the features of a vector of cells, from `begin` on; those past the 27th are out of
/// reach.
HWY_INLINE hn::Vec<FeatureLanes> SquaredDistances(const FeatureCells& cells, int begin) {
  const FeatureLanes d;
  const Bits<FeatureLanes> du;
  const auto sum = hn::LoadU(du, cells.sum + begin);
  const auto hash = MixCorner(sum);
  const auto along = [&](const double* offset, double fraction, auto bits) HWY_ATTR {
    const auto corner = hn::Sub(hn::Set(d, fraction), hn::LoadU(d, offset + begin));
    return hn::Sub(corner, hn::Sub(OneToTwo(d, bits), hn::Set(d, 1.0)));
  };
  const auto x = along(kCellOffsets.axis[0], cells.point.fraction[0], hash);
  const auto y = along(kCellOffsets.axis[1], cells.point.fraction[1], hn::ShiftLeft<17>(hash));
  const auto z = along(kCellOffsets.axis[2], cells.point.fraction[2], hn::ShiftLeft<34>(hash));
  return hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
}

/// All 27 squared distances.
void AllDistances(const FeatureCells& cells, double* squared) {
  const FeatureLanes d;
  for (int c = 0; c < kPaddedCells; c += static_cast<int>(hn::Lanes(d)))
    hn::StoreU(SquaredDistances(cells, c), d, squared + c);
}

/// The cells of the nearest two features. The cell's number takes the lowest bits of its squared distance, so
/// that the two smallest are the same in whatever order they are found.
void NearestCells(const FeatureCells& cells, int& first, int& second) {
  const FeatureLanes d;
  const Bits<FeatureLanes> du;
  const auto cellBits = hn::Set(du, uint64_t{kPaddedCells - 1});
  auto smallest = hn::Set(d, std::numeric_limits<double>::max()), next = smallest;
  for (int c = 0; c < kPaddedCells; c += static_cast<int>(hn::Lanes(d))) {
    const auto distance = hn::BitCast(du, SquaredDistances(cells, c));
    const auto number = hn::Iota(du, static_cast<uint64_t>(c));
    const auto key = hn::BitCast(d, hn::Or(hn::AndNot(cellBits, distance), number));
    next = hn::Min(next, hn::Max(smallest, key));
    smallest = hn::Min(smallest, key);
  }
  double firsts[8], seconds[8];
  hn::StoreU(smallest, d, firsts);
  hn::StoreU(next, d, seconds);
  double s1 = firsts[0], s2 = seconds[0];
  for (size_t i = 1; i < hn::Lanes(d); ++i) {
    s2 = std::min({std::max(s1, firsts[i]), s2, seconds[i]});
    s1 = std::min(s1, firsts[i]);
  }
  first = static_cast<int>(std::bit_cast<uint64_t>(s1) & (kPaddedCells - 1));
  second = static_cast<int>(std::bit_cast<uint64_t>(s2) & (kPaddedCells - 1));
}

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovnoise {
HWY_EXPORT(AllDistances);
HWY_EXPORT(NearestCells);
}  // namespace ovnoise

using namespace ovnoise;

namespace {

/// The nearest two so far.
struct NearestTwo {
  double d1, d2;  // squared
  trVector to1, to2;
  double value;
};

int CellOffset(int cell, int axis) { return static_cast<int>(kCellOffsets.axis[axis][cell]); }

/// The ring of cells two away, where only a second feature, rarely a first, can lie nearer than those found.
void SearchOuterCells(const FeatureCells& cells, NearestTwo& nearest) {
  for (int k = -2; k <= 2; ++k)
    for (int j = -2; j <= 2; ++j)
      for (int i = -2; i <= 2; ++i) {
        if (std::max({std::abs(i), std::abs(j), std::abs(k)}) < 2) continue;
        const double gx = cells.Gap(i, 0), gy = cells.Gap(j, 1), gz = cells.Gap(k, 2);
        if (gx * gx + gy * gy + gz * gz >= nearest.d2) continue;
        const trVector to = cells.ToFeature(i, j, k);
        const double d = to.LengthSquared();
        if (d < nearest.d1) {
          nearest.d2 = nearest.d1, nearest.to2 = nearest.to1;
          nearest.d1 = d, nearest.to1 = to;
          nearest.value = cells.Value(i, j, k);
        } else if (d < nearest.d2) {
          nearest.d2 = d, nearest.to2 = to;
        }
      }
}

}  // namespace

template <>
void trVoronoi3<double>(double& value, trVector& toNearest, trVector& toSecond, const double* point) {
  const FeatureCells cells(point);
  int first, second;
  HWY_DYNAMIC_DISPATCH(NearestCells)(cells, first, second);
  const auto toFeature = [&](int cell) {
    return cells.ToFeature(CellOffset(cell, 0), CellOffset(cell, 1), CellOffset(cell, 2));
  };
  NearestTwo nearest;
  nearest.to1 = toFeature(first);
  nearest.to2 = toFeature(second);
  nearest.d1 = nearest.to1.LengthSquared();
  nearest.d2 = nearest.to2.LengthSquared();
  nearest.value = cells.Value(CellOffset(first, 0), CellOffset(first, 1), CellOffset(first, 2));
  const double outer = cells.DistanceToOuterCells();
  if (nearest.d2 > outer * outer) SearchOuterCells(cells, nearest);
  value = nearest.value;
  toNearest = nearest.to1;
  toSecond = nearest.to2;
}

void trDEV_SmoothVoronoi3(double& result, const double* point, const double& size, const double& invSize) {
  const double falloff = size > kPointFilter ? 2.0 * invSize : kPointFalloff;
  double squared[kPaddedCells];
  HWY_DYNAMIC_DISPATCH(AllDistances)(FeatureCells(point), squared);
  double distance[27];
  int count = 0;
  double nearest = 1.0;
  for (int c = 0; c < 27; ++c) {
    if (squared[c] >= 1.0) continue;
    distance[count] = std::sqrt(squared[c]);
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
#endif  // HWY_ONCE
