// The noise of all octaves of one point: where each octave looks, and the kernels that give a flavour its
// shape. Included once per instruction set.
#if defined(FRACTAL_OCTAVE_NOISE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef FRACTAL_OCTAVE_NOISE_INL_H_
#undef FRACTAL_OCTAVE_NOISE_INL_H_
#else
#define FRACTAL_OCTAVE_NOISE_INL_H_
#endif

#include <algorithm>

#include "core/guarded.h"
#include "core/voronoi_batch.h"
#include "fractal/noise_kernels.h"
#include "fractal/octave_math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovfractal {
namespace HWY_NAMESPACE {

// Tables of kMaxOctaves entries hold whole vectors of up to eight.
using Lanes = hn::CappedTag<double, 8>;
using V = hn::Vec<Lanes>;

inline constexpr double kLogLacunarity = 0.6523251860396901;

/// The number of the octave, as a real number, at which an evaluation at `q` (in lead-in wavelengths) ends:
/// where double precision leaves the point too few fraction bits, or where the footprint (metres) swallows
/// the octaves, which it does at `reach` of their wavelength.
inline double OctaveLimit(const FractalDerived& d, const trVector& q, double footprint, double reach) {
  const double resolved = d.leadInWavelength * reach;
  // Most points are clear of an end by more octaves than the fade takes, which a product tells.
  const double clear = d.octaves + 2;
  const bool isNear = q.LengthSquared() < d.clearRadiusSquared;
  if (isNear && footprint <= resolved * d.clearFootprint) return clear;
  const double limit = isNear ? clear : std::min(29.0 - Log1(q.Length()) * 1.44269504088896, 31.0);
  return footprint > 0.0 ? std::min(limit, Log1(resolved / footprint) / kLogLacunarity) : limit;
}

/// 1.92^i and 1.92^(i/2): how space and time of octave i are stretched against those of the lead-in octave.
struct OctavePowers {
  double space[kMaxOctaves], time[kMaxOctaves];
  constexpr OctavePowers() : space(), time() {
    constexpr double kRootLacunarity = 1.3856406460551018;
    double s = 1.0, t = 1.0;
    for (int i = 0; i < kMaxOctaves; ++i) {
      space[i] = s, time[i] = t;
      s *= kLacunarity, t *= kRootLacunarity;
    }
  }
};
inline constexpr OctavePowers kPowers;

/// One evaluation's octaves, 0 to `count` - 1, and where they look: texture space in units of the octave's
/// wavelength.
struct OctaveRun {
  int count;
  double
      filter;  ///< footprint in texture units of octave wavelengths times frequency, 0 when nothing smooths
  long selector;
  double fade[3];  ///< weights of the last octave and the two before it
  bool fourD;
  double x[kMaxOctaves], y[kMaxOctaves], z[kMaxOctaves], w[kMaxOctaves];

  /// Counts the octaves that end at `limit`, and fades the last of them; false when there is none.
  HWY_INLINE bool EndAt(int octaves, double limit) {
    if (octaves == 0 || !(limit > -1.0)) return false;
    const int last = std::min(octaves - 1, static_cast<int>(std::ceil(limit)));
    count = last + 1;
    const double t = (1.0 - (last - limit)) / 3.0;
    fade[0] = SmoothStep(t);
    fade[1] = SmoothStep(t + 1.0 / 3.0);
    fade[2] = SmoothStep(t + 2.0 / 3.0);
    return true;
  }

  /// The count rounded up to whole vectors.
  HWY_INLINE int Padded() const {
    const int lanes = static_cast<int>(hn::Lanes(Lanes()));
    return (count + lanes - 1) / lanes * lanes;
  }

  /// Octaves of one texture point; `shift` is the same distance in every octave's own units.
  HWY_INLINE void SetAll(const trVector& q, double time, const trVector& shift) {
    const Lanes d;
    // Whole vectors, as the lookup reads them: narrower writes would stall it.
    for (int i = 0; i < count; i += static_cast<int>(hn::Lanes(d))) {
      const V scale = hn::LoadU(d, kPowers.space + i);
      hn::StoreU(hn::Add(hn::Mul(hn::Set(d, q.x), scale), hn::Set(d, shift.x)), d, x + i);
      hn::StoreU(hn::Add(hn::Mul(hn::Set(d, q.y), scale), hn::Set(d, shift.y)), d, y + i);
      hn::StoreU(hn::Add(hn::Mul(hn::Set(d, q.z), scale), hn::Set(d, shift.z)), d, z + i);
      if (fourD) hn::StoreU(hn::Mul(hn::Set(d, time), hn::LoadU(d, kPowers.time + i)), d, w + i);
    }
  }
};

/// The formula of a noise flavour. Even and odd octaves may take turns between billows (sign 1) and ridges
/// (sign -1).
struct Kernel {
  enum Form { kPlain, kSoft, kLog, kNearest, kSmoothNearest, kBorder } form = kPlain;
  double sign[2] = {1, 1};
  double radius[2] = {0, 0};  ///< softness of the fold
  double inverse[2] = {0, 0};
  bool widen = false;  ///< whether the filter's footprint softens the fold further
};

HWY_INLINE Kernel Folded(const FractalDerived& d, Kernel::Form form, int even, int odd, bool widen) {
  Kernel k;
  k.form = form;
  k.widen = widen;
  const int sign[2] = {even, odd};
  for (int i = 0; i < 2; ++i) {
    k.sign[i] = sign[i];
    k.radius[i] = sign[i] > 0 ? d.gullySoft : d.ridgeSoft;
    k.inverse[i] = sign[i] > 0 ? d.invGullySoft : d.invRidgeSoft;
  }
  return k;
}

HWY_INLINE Kernel Cellular(Kernel::Form form, int sign) {
  Kernel k;
  k.form = form;
  k.sign[0] = k.sign[1] = sign;
  return k;
}

/// The kernel of a selector: the flavour, plus 100 when a filter smooths, plus 1000 for better continuity.
inline Kernel ChooseKernel(long selector, const FractalDerived& d) {
  switch (selector) {
    case 1:
      return Folded(d, Kernel::kSoft, 1, 1, false);
    case 2:
      return Folded(d, Kernel::kSoft, -1, -1, false);
    case 101:
      return Folded(d, Kernel::kSoft, 1, 1, true);
    case 102:
      return Folded(d, Kernel::kSoft, -1, -1, true);
    case 3:
    case 103:
      return Folded(d, Kernel::kSoft, -1, 1, true);
    case 4:
    case 104:
      return Folded(d, Kernel::kSoft, 1, -1, true);
    case 1001:
    case 1101:
      return Folded(d, Kernel::kLog, 1, 1, true);
    case 1002:
    case 1102:
      return Folded(d, Kernel::kLog, -1, -1, true);
    case 1003:
    case 1103:
      return Folded(d, Kernel::kLog, -1, 1, true);
    case 1004:
    case 1104:
      return Folded(d, Kernel::kLog, 1, -1, true);
    case 5:
    case 1005:
      return Cellular(Kernel::kNearest, 1);
    case 6:
    case 1006:
      return Cellular(Kernel::kNearest, -1);
    case 105:
    case 1105:
      return Cellular(Kernel::kSmoothNearest, 1);
    case 106:
    case 1106:
      return Cellular(Kernel::kSmoothNearest, -1);
    case 7:
    case 107:
    case 1007:
    case 1107:
      return Cellular(Kernel::kBorder, 1);
    case 8:
    case 108:
    case 1008:
    case 1108:
      return Cellular(Kernel::kBorder, -1);
    default:
      return Kernel();
  }
}

/// |x| with its fold rounded off below about `r`, by a parabola.
HWY_INLINE V SoftAbs(V x, V r, V inverse) {
  const Lanes d;
  V t = hn::Mul(hn::Mul(hn::Abs(x), inverse), hn::Set(d, 0.75));
  const V half = hn::Set(d, 0.5);
  t = hn::IfThenElse(hn::Lt(t, hn::Set(d, 1.0)), hn::Add(hn::Mul(half, hn::Mul(t, t)), half), t);
  return hn::Mul(hn::Mul(r, hn::Set(d, 4.0 / 3.0)), t);
}

/// |x| as the smooth maximum of x and -x: r log(e^(x/r) + e^(-x/r)), smooth to every derivative.
HWY_INLINE V LogAbs(V x, V r, V inverse) {
  const Lanes d;
  const V magnitude = hn::Abs(x), one = hn::Set(d, 1.0);
  const V t = hn::Mul(magnitude, inverse);
  const V smooth = hn::Mul(r, hn::Add(Log(d, hn::Add(Exp(d, hn::Mul(t, hn::Set(d, -2.0))), one)), t));
  return hn::IfThenElse(hn::Le(r, hn::Set(d, 1e-12)), magnitude, smooth);
}

/// A fold's softness under a filter: the root in single precision, its reciprocal in double.
HWY_INLINE V Widen(V radius, V footprint) {
  const Lanes d;
  const hn::Rebind<float, Lanes> df;
  const V wide = hn::Add(footprint, hn::Mul(hn::Mul(footprint, footprint), hn::Set(d, 8.0)));
  const V sum = hn::Add(hn::Mul(radius, radius), hn::Mul(wide, wide));
  return hn::PromoteTo(d, hn::Sqrt(hn::DemoteTo(df, sum)));
}

/// Turns the plain noise of each octave into that of a folded kernel, in place.
inline void FoldNoise(const Kernel& k, const FractalDerived& derived, const OctaveRun& run, double* noise) {
  static constexpr double kParity[kMaxOctaves] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1,
                                                  0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
  const Lanes d;
  const V one = hn::Set(d, 1.0);
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const auto odd = hn::Eq(hn::LoadU(d, kParity + i), one);
    const V sign = hn::IfThenElse(odd, hn::Set(d, k.sign[1]), hn::Set(d, k.sign[0]));
    V r = hn::IfThenElse(odd, hn::Set(d, k.radius[1]), hn::Set(d, k.radius[0]));
    V inverse = hn::IfThenElse(odd, hn::Set(d, k.inverse[1]), hn::Set(d, k.inverse[0]));
    if (k.widen) {
      r = Widen(r, hn::Mul(hn::LoadU(d, derived.frequency + i), hn::Set(d, run.filter)));
      inverse = hn::Div(one, r);
    }
    const V n = hn::LoadU(d, noise + i);
    const V fold = k.form == Kernel::kSoft ? SoftAbs(n, r, inverse)
                                           : hn::Sub(LogAbs(n, r, inverse), hn::Mul(r, hn::Set(d, 0.25)));
    hn::StoreU(hn::Mul(hn::Mul(sign, hn::Set(d, 2.0)), hn::Sub(fold, hn::Set(d, 0.15))), d, noise + i);
  }
}

/// Where the Voronoi flavours look each octave up, in whole vectors.
struct CellularPoints {
  double x[kMaxOctaves], y[kMaxOctaves], z[kMaxOctaves];
  trVoronoiBatch batch;

  HWY_INLINE CellularPoints(const OctaveRun& run, const trVector* offset) : batch{x, y, z, run.Padded()} {
    for (int i = 0; i < run.count; ++i) {
      x[i] = run.x[i] + offset[i].x;
      y[i] = run.y[i] + offset[i].y;
      z[i] = run.z[i] + offset[i].z;
    }
    for (int i = run.count; i < batch.count; ++i) x[i] = y[i] = z[i] = 0.0;
  }
};
static_assert(kMaxOctaves % 8 == 0, "as batches of points are rounded up");

/// The smoothed distance to the nearest feature, its fold at 0 rounded off. The logarithms of all octaves are
/// taken together.
inline void SmoothNearestNoise(const Kernel& k, const FractalDerived& derived, const OctaveRun& run,
                               const trVector* offset, double* noise) {
  const Lanes d;
  const CellularPoints points(run, offset);
  double footprint[kMaxOctaves];
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d)))
    hn::StoreU(hn::Mul(hn::LoadU(d, derived.frequency + i), hn::Set(d, run.filter)), d, footprint + i);
  trDEV_SmoothVoronoi3Batch(points.batch, footprint, noise);
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const V r = hn::Mul(hn::Set(d, 1.4), hn::LoadU(d, footprint + i));
    const V soft = LogAbs(hn::LoadU(d, noise + i), r, hn::Div(hn::Set(d, 1.0), r));
    hn::StoreU(hn::Mul(hn::Set(d, k.sign[0]), hn::Sub(hn::Set(d, 0.52), soft)), d, noise + i);
  }
}

/// The other Voronoi flavours.
inline void CellularNoise(const Kernel& k, const OctaveRun& run, const trVector* offset, double* noise) {
  const Lanes d;
  const CellularPoints points(run, offset);
  double second[kMaxOctaves];
  const bool isBorder = k.form == Kernel::kBorder;
  trVoronoi3Batch(points.batch, noise, isBorder ? second : nullptr);
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const V f1 = hn::LoadU(d, noise + i);
    const V shape =
        isBorder ? hn::Sub(hn::Mul(hn::Sub(hn::LoadU(d, second + i), f1), hn::Set(d, 0.5)), hn::Set(d, 0.1))
                 : hn::Sub(hn::Set(d, 0.52), f1);
    hn::StoreU(hn::Mul(hn::Set(d, k.sign[0]), shape), d, noise + i);
  }
}

/// The kernel's value for every octave. `firstSeed` is that of octave 0, `offset` the Voronoi offsets that go
/// with it.
inline void OctaveNoise(const Kernel& k, const FractalDerived& derived, const OctaveRun& run,
                        std::uint32_t firstSeed, const trVector* offset, double* noise) {
  if (k.form == Kernel::kSmoothNearest) return SmoothNearestNoise(k, derived, run, offset, noise);
  if (k.form >= Kernel::kNearest) return CellularNoise(k, run, offset, noise);
  // Whole vectors: the positions past the last octave are those of octaves that could follow.
  const trNoiseBatch batch = {run.x, run.y, run.z, run.w, firstSeed, 1, run.Padded()};
  if (run.fourD)
    trNoise4Batch(batch, noise);
  else
    trNoise3Batch(batch, noise);
  if (k.form != Kernel::kPlain) FoldNoise(k, derived, run, noise);
}

}  // namespace HWY_NAMESPACE
}  // namespace ovfractal
HWY_AFTER_NAMESPACE();

#endif
