// Dispatched at run time: a target that is chosen by the compiler has no lanes on plain x86-64.
#include "atmosphere/media_lanes.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "atmosphere/media_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "fractal/octave_math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace atmosphere {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Lanes = hn::CappedTag<double, kLaneRoom>;
using V = hn::Vec<Lanes>;

HWY_INLINE V All(double x) { return hn::Set(Lanes(), x); }

/// Bounded below and above; what isn't a number becomes the lower bound.
HWY_INLINE V Clamped(V x, double low, double high) {
  x = hn::IfThenElse(hn::Gt(x, All(low)), x, All(low));
  return hn::IfThenElse(hn::Lt(x, All(high)), x, All(high));
}

/// trFastExp between its limits, to the same bits.
HWY_INLINE V ExpInRange(V x) {
  const Lanes d;
  const V shifted = hn::Add(hn::Mul(x, All(trFastExp::kLog2E)), All(trFastExp::kRound));
  const V r = hn::Sub(x, hn::Mul(hn::Sub(shifted, All(trFastExp::kRound)), All(trFastExp::kLn2)));
  const V p = ovfractal::HWY_NAMESPACE::Polynomial(d, r, trFastExp::kPolynomial);
  return ovfractal::HWY_NAMESPACE::ScaleByPower(d, hn::Add(hn::Mul(p, r), All(1.0)), shifted);
}

/// exp(x) for a mean density: nothing below e^x = 1e-6, bounded at 1e6.
HWY_INLINE V DensityExp(V x) {
  constexpr double kLog1e6 = 13.815510749816895;
  const V e = ExpInRange(Clamped(x, -kLog1e6, kLog1e6));
  const V kept = hn::IfThenElseZero(hn::Gt(e, All(9.999999974752427e-7)), e);
  const V bounded = hn::IfThenElse(hn::Gt(x, All(kLog1e6)), All(1000000.0025247573), kept);
  return hn::IfThenZeroElse(hn::Lt(x, All(-kLog1e6)), bounded);
}

/// exp(x) to a few percent, from the bits of the exponent (Schraudolph, A Fast, Compact Approximation of the
/// Exponential Function, 1999). For segments so level that their densities hardly differ.
HWY_INLINE V CoarseExp(V x) {
  const Lanes d;
  const hn::RebindToUnsigned<Lanes> du;
  const V high = hn::Add(hn::Mul(Clamped(x, -20.0, 20.0), All(1512775.3951951822)), All(1072632447.0));
  // The upper half of the result; past the addition it stands in the low bits.
  const V whole = hn::Add(hn::Floor(high), All(trFastExp::kRound));
  const V e = hn::BitCast(d, hn::ShiftLeft<32>(hn::BitCast(du, whole)));
  const V bounded = hn::IfThenElse(hn::Gt(x, All(20.0)), All(482087424.0), e);
  return hn::IfThenElseZero(hn::Ge(x, All(-20.0)), bounded);
}

/// exp(-t), with the error of the fast exponential taken out near 0, where 1 minus it is what counts. 1 for t
/// up to 0.
HWY_INLINE V Transmit(V t) {
  const V depth = Clamped(t, 0.0, 700.0), one = All(1.0);
  const V e = ExpInRange(hn::Neg(depth));
  const V left = hn::IfThenElseZero(hn::Lt(depth, one), hn::Sub(one, depth));
  return hn::Add(hn::Mul(hn::Sub(hn::Sub(one, depth), e), hn::Mul(left, left)), e);
}

/// A denominator of magnitude at least 1e-12, keeping its sign.
HWY_INLINE V Guarded(V x) {
  const V least = hn::IfThenElse(hn::Lt(x, All(0.0)), All(-1e-12), All(1e-12));
  return hn::IfThenElse(hn::Gt(hn::Abs(x), All(1e-12)), x, least);
}

void Densities(const MediaBlock& block, const MediumProfile& medium, double* density) {
  const Lanes d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const V fall = All(-medium.inverse), least = All(medium.leastRise);
  double boundary[kMediaBlock + 1 + kLaneRoom];
  for (int i = 0; i <= block.count; i += lanes)
    hn::StoreU(DensityExp(hn::Mul(hn::LoadU(d, block.boundary + i), fall)), d, boundary + i);
  for (int i = 0; i < block.count; i += lanes) {
    const V rise = hn::Sub(hn::LoadU(d, block.boundary + i + 1), hn::LoadU(d, block.boundary + i));
    const V lost = hn::Sub(hn::LoadU(d, boundary + i), hn::LoadU(d, boundary + i + 1));
    const auto climbs = hn::Gt(hn::Abs(rise), least);
    V mean = hn::Div(hn::Mul(lost, All(medium.scaleHeight)), Guarded(rise));
    if (!hn::AllTrue(d, climbs))
      mean = hn::IfThenElse(climbs, mean, CoarseExp(hn::Mul(hn::LoadU(d, block.lit + i), fall)));
    hn::StoreU(mean, d, density + i);
  }
}

void Opacities(double* depths, int count) {
  const Lanes d;
  for (int i = 0; i < count; i += static_cast<int>(hn::Lanes(d)))
    hn::StoreU(hn::Sub(All(1.0), Transmit(hn::LoadU(d, depths + i))), d, depths + i);
}

}  // namespace HWY_NAMESPACE
}  // namespace atmosphere
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace atmosphere {
HWY_EXPORT(Densities);
HWY_EXPORT(Opacities);

void MeanDensities(const MediaBlock& block, const MediumProfile& medium,
                   double (&density)[kMediaBlock + kLaneRoom]) {
  HWY_DYNAMIC_DISPATCH(Densities)(block, medium, density);
}

void TakeOpacities(double* depths, int count) { HWY_DYNAMIC_DISPATCH(Opacities)(depths, count); }
}  // namespace atmosphere
#endif  // HWY_ONCE
