// Lattice noise at two points: the two points and two neighbouring corners of each side by side in four
// lanes. Terms are summed in the order of the single form, whose bits these are.
#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/noise_pair.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// The lattice needs Highway ahead of it.
#include "core/noise.h"
#include "core/noise_pair.h"
#include "host/noise/box_filter.h"
#include "host/noise/lattice-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovnoise {
namespace HWY_NAMESPACE {

#if HWY_MAX_BYTES < 32

// Vectors of fewer than four lanes are no faster than two lookups, which the processor overlaps.
void LerpNoisePair(const double* a, const double* b, const double* filter, double* out) {
  out[0] = filter ? trLerpNoise3_SmoothXY(a, filter) : trLerpNoise3(a);
  out[1] = filter ? trLerpNoise3_SmoothXY(b, filter) : trLerpNoise3(b);
}

#else

/// Lane `l` holds point l % 2; along x, lanes 2 and 3 hold the corner after that of lanes 0 and 1.
constexpr int kPairLanes = 4;
using D = hn::FixedTag<double, kPairLanes>;
using V = hn::Vec<D>;
using B = hn::Vec<Bits<D> >;

/// One corner a lane: its hash along the axis, its weight, and that times the way from it to the point.
struct CornerLanes {
  B hash;
  V weight, moment;
};

/// Integral, from -1 to t, of a corner's weight at distance t.
HWY_INLINE V WeightIntegral(V t) {
  const D d;
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0);
  const auto isNegative = hn::Lt(t, zero);
  const V s = hn::IfThenElse(isNegative, hn::Add(t, one), hn::Sub(one, t));
  const V power = hn::Mul(hn::Mul(hn::Mul(s, s), s), s);
  const V series = hn::Add(hn::Sub(hn::Mul(s, s), hn::Mul(hn::Set(d, 3.0), s)), hn::Set(d, 2.5));
  const V tail = hn::Mul(power, series);
  const V inside = hn::IfThenElse(isNegative, tail, hn::Sub(one, tail));
  return hn::IfThenElse(hn::Le(t, hn::Neg(one)), zero, hn::IfThenElse(hn::Ge(t, one), one, inside));
}

/// Integral, from 0 to t, of t times that weight.
HWY_INLINE V MomentIntegral(V t) {
  const D d;
  const V s = hn::Min(hn::Abs(t), hn::Set(d, 1.0)), s2 = hn::Mul(s, s);
  const V slope = hn::Sub(hn::Mul(s, hn::Set(d, 6.0 / 7.0)), hn::Set(d, 2.5));
  const V series = hn::Add(hn::Mul(slope, s), hn::Set(d, 2.0));
  return hn::Sub(hn::Mul(s2, hn::Set(d, 0.5)), hn::Mul(hn::Mul(hn::Mul(s2, s2), s), series));
}

/// The corners that a box `width` wide about either point may reach.
struct Reach {
  int first = 0, last = 1;
  HWY_INLINE void Widen(double a, double b, double width) {
    for (const double x : {ovnoise::Sanitise(a), ovnoise::Sanitise(b)}) {
      const double fraction = x - std::floor(x);
      if (fraction - 0.5 * width < 0) first = -1;
      if (fraction + 0.5 * width >= 1) last = 2;
    }
  }
};

/// Both points along one axis, a point or, with `kBox`, perhaps a box wide.
template <bool kBox>
struct AxisLanes {
  V fraction, fade;
  B cell;  ///< with the axis' own offset
  double width;

  HWY_INLINE AxisLanes(V x, int axis, double boxWidth) : width(boxWidth) {
    const D d;
    const Bits<D> du;
    const V sane = Sanitise(d, x), floor = hn::Floor(sane);
    fraction = hn::Sub(sane, floor);
    fade = Fade(d, fraction);
    cell = hn::Add(hn::BitCast(du, hn::Add(floor, hn::Set(d, kFloorToBits))), hn::Set(du, kAxisOffset[axis]));
  }

  /// Corner `index`, in the lanes of `next` the one after it.
  HWY_INLINE CornerLanes At(int index, hn::Mask<D> next) const {
    const D d;
    const Bits<D> du;
    const V corner = hn::IfThenElse(next, hn::Set(d, index + 1.0), hn::Set(d, index));
    const B number = hn::IfThenElse(hn::RebindMask(du, next), hn::Set(du, static_cast<uint64_t>(index + 1)),
                                    hn::Set(du, static_cast<uint64_t>(index)));
    CornerLanes lanes;
    lanes.hash = HashCell(hn::Add(cell, number));
    if (!kBox || width == 0) {
      const auto isFar = hn::Eq(corner, hn::Set(d, 1.0));
      lanes.weight = hn::IfThenElse(isFar, fade, hn::Sub(hn::Set(d, 1.0), fade));
      lanes.moment = hn::Mul(lanes.weight, hn::Sub(fraction, corner));
      return lanes;
    }
    const V half = hn::Set(d, 0.5 * width), wide = hn::Set(d, width);
    const V low = hn::Sub(hn::Sub(fraction, half), corner), high = hn::Sub(hn::Add(fraction, half), corner);
    lanes.weight = hn::Div(hn::Sub(WeightIntegral(high), WeightIntegral(low)), wide);
    lanes.moment = hn::Div(hn::Sub(MomentIntegral(high), MomentIntegral(low)), wide);
    return lanes;
  }
};

/// What the corner of three axes adds to the sum.
HWY_INLINE V Term(const CornerLanes& x, const CornerLanes& y, const CornerLanes& z) {
  const D d;
  const Bits<D> du;
  const V middle = hn::Set(d, 1.5);
  const B hash = MixCorner(hn::Add(hn::Add(hn::Add(x.hash, y.hash), z.hash), hn::Set(du, kLerpSeed)));
  const V gx = hn::Sub(OneToTwo(d, hash), middle);
  const V gy = hn::Sub(OneToTwo(d, hn::ShiftLeft<17>(hash)), middle);
  const V gz = hn::Sub(OneToTwo(d, hn::ShiftLeft<34>(hash)), middle);
  const V across =
      hn::Add(hn::Mul(hn::Mul(gx, x.moment), y.weight), hn::Mul(hn::Mul(gy, x.weight), y.moment));
  const V along = hn::Mul(hn::Mul(hn::Mul(gz, x.weight), y.weight), z.moment);
  return hn::Add(hn::Mul(across, z.weight), along);
}

/// The noise at the two points, with `kBox` in boxes `widths` wide about them, 0 for the points alone.
template <bool kBox>
HWY_INLINE void SumCorners(const double* a, const double* b, const double* widths, double* out) {
  const D d;
  const auto next = hn::Ge(hn::Iota(d, 0), hn::Set(d, 2.0)), none = hn::FirstN(d, 0);
  const auto both = [&](int i) {
    const double lanes[kPairLanes] = {a[i], b[i], a[i], b[i]};
    return hn::LoadU(d, lanes);
  };
  const AxisLanes<kBox> x(both(0), 0, widths[0]), y(both(1), 1, widths[1]);
  const AxisLanes<false> z(both(2), 2, 0);
  Reach reachX, reachY;
  if constexpr (kBox) {
    reachX.Widen(a[0], b[0], widths[0]);
    reachY.Widen(a[1], b[1], widths[1]);
  }
  CornerLanes xs[2];
  int pairs = 0;
  for (int i = reachX.first; i <= reachX.last; i += 2) xs[pairs++] = x.At(i, next);
  out[0] = out[1] = 0;
  for (int k = 0; k < 2; ++k) {
    const CornerLanes zCorner = z.At(k, none);
    for (int j = reachY.first; j <= reachY.last; ++j) {
      const CornerLanes yCorner = y.At(j, none);
      for (int pair = 0; pair < pairs; ++pair) {
        double terms[kPairLanes];
        hn::StoreU(Term(xs[pair], yCorner, zCorner), d, terms);
        for (int l = 0; l < kPairLanes; ++l) out[l % 2] += terms[l];
      }
    }
  }
}

void LerpNoisePair(const double* a, const double* b, const double* filter, double* out) {
  double widths[2] = {0, 0}, fade = 1;
  for (int i = 0; filter && i < 2; ++i) {
    const double width = std::fabs(filter[i]);
    if (width >= 2.0) {
      out[0] = out[1] = 0;
      return;
    }
    if (width > kPointWidth) widths[i] = width;
    fade *= BoxFade(width);
  }
  double sum[2];
  if (widths[0] == 0 && widths[1] == 0)
    SumCorners<false>(a, b, widths, sum);
  else
    SumCorners<true>(a, b, widths, sum);
  for (int i = 0; i < 2; ++i) out[i] = filter ? fade * (sum[i] * kScale3) : sum[i] * kScale3;
}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovnoise {
HWY_EXPORT(LerpNoisePair);
}  // namespace ovnoise

void trLerpNoise3Pair(const double* a, const double* b, const double* filter, double* out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::LerpNoisePair)(a, b, filter, out);
}
#endif  // HWY_ONCE
