// Voronoi distances at many points, one a lane: the 27 cells about all of them are gone through together,
// which needs no search across lanes as cells side by side do (voronoi.cpp).
#include "core/voronoi_batch.h"

#include <algorithm>

#include "core/noise.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/voronoi_batch.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "host/noise/feature_cells.h"
#include "host/noise/lattice-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovnoise {
namespace HWY_NAMESPACE {

using PointLanes = hn::CappedTag<double, 8>;
using PointV = hn::Vec<PointLanes>;
using PointBits = hn::Vec<Bits<PointLanes> >;

/// Three neighbouring cells along one axis: how far the points are from their corners, and their hashes.
struct AxisCells {
  PointV fraction, fromCorner[3];
  PointBits hash[3];

  HWY_INLINE AxisCells(PointV x, int axis) {
    const PointLanes d;
    const Bits<PointLanes> du;
    const PointV sane = Sanitise(d, x), floor = hn::Floor(sane);
    fraction = hn::Sub(sane, floor);
    const PointBits cell = hn::BitCast(du, hn::Add(floor, hn::Set(d, kFloorToBits)));
    for (int i = 0; i < 3; ++i) {
      fromCorner[i] = hn::Sub(fraction, hn::Set(d, i - 1.0));
      hash[i] = HashCell(hn::Add(cell, hn::Set(du, kAxisOffset[axis] + static_cast<uint64_t>(i) - 1)));
    }
  }

  /// Distance to the nearest cell along the axis that isn't one of the three.
  HWY_INLINE PointV ToOuterCells() const {
    const PointLanes d;
    return hn::Min(hn::Sub(hn::Set(d, 2.0), fraction), hn::Add(fraction, hn::Set(d, 1.0)));
  }
};

/// Calls use(squared distance to the cell's feature) for each of the 27 cells, x fastest.
template <class Use>
HWY_INLINE void VisitFeatures(const AxisCells& x, const AxisCells& y, const AxisCells& z, const Use& use) {
  const PointLanes d;
  const Bits<PointLanes> du;
  const PointBits seed = hn::Set(du, kFeatureSeed);
  const PointV one = hn::Set(d, 1.0);
  const auto square = [&](PointV fromCorner, PointBits bits) HWY_ATTR {
    const PointV offset = hn::Sub(fromCorner, hn::Sub(OneToTwo(d, bits), one));
    return hn::Mul(offset, offset);
  };
  for (int k = 0; k < 3; ++k)
    for (int j = 0; j < 3; ++j) {
      const PointBits row = hn::Add(hn::Add(y.hash[j], z.hash[k]), seed);
      for (int i = 0; i < 3; ++i) {
        const PointBits hash = MixCorner(hn::Add(x.hash[i], row));
        use(hn::Add(hn::Add(square(x.fromCorner[i], hash), square(y.fromCorner[j], hn::ShiftLeft<17>(hash))),
                    square(z.fromCorner[k], hn::ShiftLeft<34>(hash))));
      }
    }
}

/// The nearest features among the 27 cells, and bits of the lanes where others may be nearer.
template <bool kSecond>
HWY_INLINE void NearestInCells(const AxisCells& x, const AxisCells& y, const AxisCells& z, PointV& first,
                               PointV& second, hn::Mask<PointLanes>& isOpen) {
  const PointLanes d;
  PointV d1 = hn::Set(d, 1e300), d2 = d1;
  VisitFeatures(x, y, z, [&](PointV squared) HWY_ATTR {
    if constexpr (kSecond) d2 = hn::Min(d2, hn::Max(d1, squared));
    d1 = hn::Min(d1, squared);
  });
  const PointV outer = hn::Min(hn::Min(x.ToOuterCells(), y.ToOuterCells()), z.ToOuterCells());
  isOpen = hn::Gt(kSecond ? d2 : d1, hn::Mul(outer, outer));
  first = hn::Sqrt(d1);
  second = hn::Sqrt(d2);
}

/// The single form, for points that need cells further out.
inline void NearestOfAll(const double* point, double* nearest, double* second) {
  double value;
  trVector toNearest, toSecond;
  trVoronoi3(value, toNearest, toSecond, point);
  *nearest = toNearest.Length();
  if (second) *second = toSecond.Length();
}

template <bool kSecond>
HWY_INLINE void NearestBatch(const trVoronoiBatch& b, double* nearest, double* second) {
  const PointLanes d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (int i = 0; i < b.count; i += lanes) {
    PointV first, next;
    hn::Mask<PointLanes> isOpen;
    NearestInCells<kSecond>({hn::LoadU(d, b.x + i), 0}, {hn::LoadU(d, b.y + i), 1},
                            {hn::LoadU(d, b.z + i), 2}, first, next, isOpen);
    hn::StoreU(first, d, nearest + i);
    if constexpr (kSecond) hn::StoreU(next, d, second + i);
    if (hn::AllFalse(d, isOpen)) continue;
    double open[8];
    hn::StoreU(hn::IfThenElseZero(isOpen, hn::Set(d, 1.0)), d, open);
    for (int l = 0; l < lanes; ++l) {
      if (open[l] == 0) continue;
      const double point[3] = {b.x[i + l], b.y[i + l], b.z[i + l]};
      NearestOfAll(point, nearest + i + l, kSecond ? second + i + l : nullptr);
    }
  }
}

/// trFastExp to the bit, for x up to 0.
HWY_INLINE PointV FastExpOfNegative(PointV x) {
  const PointLanes d;
  const Bits<PointLanes> du;
  const PointV round = hn::Set(d, trFastExp::kRound);
  const PointV shifted = hn::Add(hn::Mul(x, hn::Set(d, trFastExp::kLog2E)), round);
  const PointV r = hn::Sub(x, hn::Mul(hn::Sub(shifted, round), hn::Set(d, trFastExp::kLn2)));
  PointV p = hn::Set(d, trFastExp::kPolynomial[5]);
  for (int i = 4; i >= 0; --i) p = hn::Add(hn::Mul(p, r), hn::Set(d, trFastExp::kPolynomial[i]));
  p = hn::Add(hn::Mul(p, r), hn::Set(d, 1.0));
  const PointV e = hn::BitCast(d, hn::Add(hn::BitCast(du, p), hn::ShiftLeft<52>(hn::BitCast(du, shifted))));
  return hn::IfThenZeroElse(hn::Lt(x, hn::Set(d, trFastExp::kLowest)), e);
}

HWY_INLINE void SmoothLanes(const double* x, const double* y, const double* z, const double* size,
                            double* result) {
  const PointLanes d;
  const PointV one = hn::Set(d, 1.0);
  PointV squared[27], least = one;
  int cell = 0;
  VisitFeatures({hn::LoadU(d, x), 0}, {hn::LoadU(d, y), 1}, {hn::LoadU(d, z), 2}, [&](PointV s) HWY_ATTR {
    squared[cell++] = s;
    least = hn::Min(least, s);
  });
  const PointV sizes = hn::LoadU(d, size), nearest = hn::Sqrt(least);
  const PointV falloff =
      hn::IfThenElse(hn::Gt(sizes, hn::Set(d, kPointFilter)), hn::Mul(hn::Set(d, 2.0), hn::Div(one, sizes)),
                     hn::Set(d, kPointFalloff));
  PointV weight = hn::Mul(hn::Set(d, kFarWeight), FastExpOfNegative(hn::Mul(hn::Sub(nearest, one), falloff)));
  PointV sum = weight;
  for (const PointV& s : squared) {
    const auto isNear = hn::Lt(s, one);
    if (hn::AllFalse(d, isNear)) continue;
    const PointV distance = hn::Sqrt(s), inside = hn::Sub(one, hn::Mul(distance, distance));
    const PointV e = FastExpOfNegative(hn::Mul(hn::Sub(nearest, distance), falloff));
    const PointV w = hn::IfThenElseZero(isNear, hn::Mul(hn::Mul(inside, inside), e));
    weight = hn::Add(weight, w);
    sum = hn::Add(sum, hn::Mul(w, distance));
  }
  hn::StoreU(hn::Div(sum, weight), d, result);
}

void Nearest(const trVoronoiBatch& b, double* nearest, double* second) {
  if (second)
    NearestBatch<true>(b, nearest, second);
  else
    NearestBatch<false>(b, nearest, second);
}

void Smooth(const trVoronoiBatch& b, const double* size, double* result) {
  const int lanes = static_cast<int>(hn::Lanes(PointLanes()));
  for (int i = 0; i < b.count; i += lanes) SmoothLanes(b.x + i, b.y + i, b.z + i, size + i, result + i);
}

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovnoise {
HWY_EXPORT(Nearest);
HWY_EXPORT(Smooth);
}  // namespace ovnoise

void trVoronoi3Batch(const trVoronoiBatch& batch, double* nearest, double* second) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Nearest)(batch, nearest, second);
}

void trDEV_SmoothVoronoi3Batch(const trVoronoiBatch& batch, const double* size, double* result) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Smooth)(batch, size, result);
}
#endif  // HWY_ONCE
