// The octave loops of displacement and colour. All octaves' noises are looked up together, one a SIMD lane;
// what runs from octave to octave is the sum of their variation, which scales each octave's height by its
// exponential.
#include "fractal/noise_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "fractal/noise_kernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "core/guarded.h"
#include "fractal/octave_noise-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovfractal {
namespace HWY_NAMESPACE {

/// 2e-6 in single precision: footprints up to it smooth nothing.
inline constexpr double kSmallestFootprint = 1.9999999949504854e-06;

/// Offset of the texture point by one octave of noise, in units of the lead-in wavelength.
inline trVector LeadInWarp(const FractalSettings& s, trShadingInterface& si, const trVector& p) {
  const double x[3] = {p.x, p.x, p.x}, y[3] = {p.y, p.y, p.y}, z[3] = {p.z, p.z, p.z};
  double noise[3];
  trNoise3Batch({x, y, z, nullptr, FirstSeed(s, kWarpSeed), kWarpSeedStep, 3}, noise);
  trVector warp = trVector(noise[0], noise[1], noise[2]) * s.leadInWarpAmount;
  if (!s.allowVerticalWarp) warp -= Dot(warp, si.Ng()) * si.Ng();
  return warp;
}

/// Positions where a warp that is active fades out of the small octaves, a tenth an octave, towards the
/// unwarped `p`.
inline void SetFadingWarp(const FractalSettings& s, const FractalDerived& d, trVector q, trVector p,
                          const trVector& shift, OctaveRun& run) {
  for (int i = 0; i < run.count; ++i) {
    run.x[i] = q.x + shift.x;
    run.y[i] = q.y + shift.y;
    run.z[i] = q.z + shift.z;
    q *= kLacunarity;
    p *= kLacunarity;
    if (d.wavelength[i] * kInverseLacunarity < s.featureScale * 10.0) q += (p - q) * 0.1;
  }
}

/// Plans the octaves of one evaluation; false when there is none to run.
inline bool PlanOctaves(const FractalSettings& s, const FractalDerived& d, trShadingInterface& si,
                        bool colour, OctaveRun& run) {
  trVector p = si.Pt() * d.invStretch * d.leadInFrequency;
  trVector q = p;
  if (d.warpActive) q += LeadInWarp(s, si, p);
  // The halved point only serves as the unwarped reference of the fading warp; landscapes rely on its being
  // so.
  if (s.noiseFlavour >= kPerlinBillows && s.noiseFlavour <= kPerlinMix2) p *= 0.5;

  const double footprint = s.obeySmoothingFilter ? si.SmoothSize() : 0.0;
  const bool better = colour ? s.betterColourContinuity : s.betterDisplacementContinuity;
  run.selector = std::clamp(s.noiseFlavour, -10000L, 10000L) + (footprint > kSmallestFootprint ? 100 : 0) +
                 (better ? 1000 : 0);
  run.filter = footprint * (s.noiseFlavour < 5 ? 0.4 : 0.5);

  double reach = 1.0;
  if (s.noiseFlavour < 5) reach = colour && s.noiseFlavour > 0 ? 0.5 : 0.75;
  if (!run.EndAt(d.octaves, OctaveLimit(d, q, footprint, reach))) return false;

  double time = 0.0;
  run.fourD = s.fourDNoise != 0;
  if (run.fourD) {
    const trVector& i = d.invStretch;
    const double scale = std::min({std::fabs(i.x), std::fabs(i.y), std::fabs(i.z)}) * d.leadInFrequency;
    time = std::sqrt(scale) * (si.Frame() - static_cast<float>(s.referenceFrameNumber)) * s.fourDNoiseSpeed;
  }
  trVector shift;
  if (colour && s.distortByNormal) shift = (si.N() - si.Ng()) * s.distortionByNormal;
  run.SetAll(q, time, shift);
  if (d.warpActive && s.lessWarpAtFeatureScale) SetFadingWarp(s, d, q, p, shift, run);
  return true;
}

/// The kernel's values and what each octave contributes to the variation.
struct OctaveValues {
  double a[kMaxOctaves];
  double contribution[kMaxOctaves];
};

inline void EvaluateOctaves(const FractalSettings& s, const FractalDerived& derived, const OctaveRun& run,
                            OctaveValues& values) {
  const Kernel kernel = ChooseKernel(run.selector, derived);
  OctaveNoise(kernel, derived, run, FirstSeed(s, kPrimarySeed), derived.primaryOffset, values.a);
  const bool modulated = s.variationMethod == kMultiScaleModulator;
  if (modulated)
    OctaveNoise(kernel, derived, run, FirstSeed(s, kSecondarySeed), derived.secondaryOffset,
                values.contribution);
  const Lanes d;
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const V variation = hn::LoadU(d, derived.varTable + i);
    V c;
    if (modulated) {
      c = hn::Mul(hn::LoadU(d, values.contribution + i), variation);
    } else {
      const V a = hn::LoadU(d, values.a + i);
      c = hn::Mul(hn::Add(a, a), variation);
      if (s.variationMethod == kClampedMultifractal) c = hn::Min(c, hn::Zero(d));
    }
    hn::StoreU(c, d, values.contribution + i);
  }
}

/// The variation summed from octave to octave, pulled together or apart below the feature scale by the
/// clumping.
class RunningVariation {
 public:
  RunningVariation(const FractalSettings& s, const FractalDerived& d, bool anchorAtStart)
      : s_(s), d_(d), clumps_(d.clump != 1.0), anchorPending_(anchorAtStart) {}

  HWY_INLINE void Step(int octave, double contribution) {
    if (clumps_) {
      if (s_.featureScale <= d_.wavelength[octave] || anchorPending_) {
        value = Clamp(value);
        anchor_ = value;
        anchorPending_ = false;
      } else {
        value = Clamp(anchor_ + (value - anchor_) * d_.clump);
      }
    }
    value = value * s_.globalVarDamper + contribution;
  }

  double value = 0;

 private:
  HWY_INLINE double Clamp(double v) const {
    v = v < -s_.noiseVariation ? -s_.noiseVariation : v;
    return v > s_.noiseVariation ? s_.noiseVariation : v;
  }

  const FractalSettings& s_;
  const FractalDerived& d_;
  const bool clumps_;
  bool anchorPending_;
  double anchor_ = 0;
};

/// e^v under the spike limit: beyond it the exponential goes on as its tangent there.
HWY_INLINE double LimitedExp(bool exact, double v, double limit, double expLimit) {
  if (v < limit) return exact ? Exp1(v) : trFastExp()(v);
  return (v - limit) * expLimit + expLimit;
}
HWY_INLINE V LimitedExp(bool exact, V v, V limit, V expLimit) {
  const Lanes d;
  const V tangent = hn::Add(hn::Mul(hn::Sub(v, limit), expLimit), expLimit);
  return hn::IfThenElse(hn::Lt(v, limit), exact ? Exp(d, v) : FastExp(d, v), tangent);
}

/// Adds up octaves that don't depend on one another's sum, their heights computed in lanes.
HWY_INLINE double AddUp(const OctaveRun& run, double buoyancy, double start, double* a, const double* e,
                        const double* amplitude) {
  const Lanes d;
  const V lift = hn::Set(d, buoyancy);
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const V height = hn::Sub(hn::Mul(hn::Add(lift, hn::LoadU(d, a + i)), hn::LoadU(d, e + i)), lift);
    hn::StoreU(hn::Mul(height, hn::LoadU(d, amplitude + i)), d, a + i);
  }
  for (int remaining = 0; remaining < std::min(3, run.count); ++remaining)
    a[run.count - 1 - remaining] *= run.fade[remaining];
  double sum = start;
  for (int i = 0; i < run.count; ++i) sum += a[i];
  return sum;
}

/// Displacement where nothing feeds back from the sum: the exponentials are taken in lanes.
inline double SumIndependent(const FractalSettings& s, const FractalDerived& derived, const OctaveRun& run,
                             OctaveValues& values) {
  const bool exact = s.betterDisplacementContinuity;
  RunningVariation variation(s, derived, false);
  double* e = values.contribution;
  for (int i = 0; i < run.count; ++i) {
    variation.Step(i, values.contribution[i]);
    e[i] = variation.value;
  }
  const Lanes d;
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d)))
    hn::StoreU(LimitedExp(exact, hn::LoadU(d, e + i), hn::LoadU(d, derived.logSpikeLimit + i),
                          hn::LoadU(d, derived.expSpikeLimit + i)),
               d, e + i);
  return AddUp(run, derived.buoyancy, s.displacementOffset, values.a, e, derived.ampTable);
}

/// Displacement where the variation is written back: by the soft spike limit, or by the coastline's calm.
inline double SumSequential(const FractalSettings& s, const FractalDerived& derived, const OctaveRun& run,
                            const OctaveValues& values) {
  const bool exact = s.betterDisplacementContinuity;
  RunningVariation variation(s, derived, false);
  double& v = variation.value;
  double sum = s.displacementOffset;
  for (int i = 0; i < run.count; ++i) {
    variation.Step(i, values.contribution[i]);
    const double limit = derived.logSpikeLimit[i];
    double e;
    if (s.continueSpikeLimit && !(v < limit)) {
      v = Log1(v + 1.0 - limit) + limit;
      e = exact ? Exp1(v) : trFastExp()(v);
    } else {
      e = LimitedExp(exact, v, limit, derived.expSpikeLimit[i]);
    }
    double height = ((derived.buoyancy + values.a[i]) * e - derived.buoyancy) * derived.ampTable[i];
    const int remaining = run.count - 1 - i;
    if (remaining < 3) height *= run.fade[remaining];
    sum += height;
    if (s.adjustCoastline && sum < s.coastlineAltitude) {
      const double t = GuardedDivide(s.coastlineAltitude - sum, derived.ampTable[i]) * s.coastlineSmoothing;
      v -= t * t;
    }
  }
  return sum;
}

double Displacement(const FractalSettings& s, const FractalDerived& d, trShadingInterface& si) {
  if (std::fabs(s.displacementAmplitude) <= 1e-12) return s.displacementOffset;
  OctaveRun run;
  if (!PlanOctaves(s, d, si, false, run)) return s.displacementOffset;
  OctaveValues values;
  EvaluateOctaves(s, d, run, values);
  const double sum = s.continueSpikeLimit || s.adjustCoastline ? SumSequential(s, d, run, values)
                                                               : SumIndependent(s, d, run, values);
  return std::isfinite(sum) ? sum : s.displacementOffset;
}

/// How much of its amplitude each octave has in a colour.
struct ColourWeights {
  double damping[kMaxOctaves];    ///< 1 where the lead-in octaves aren't damped
  double amplitude[kMaxOctaves];  ///< damping and the octave's own amplitude, tail boost included
  double relative[kMaxOctaves];   ///< the feature size over the octave's wavelength, at most 1
};

/// The tails of a cloud's octaves, the first with a feature of `relative` lead-in wavelengths. They are made
/// from their logarithms: with a roughness near 0 they begin beyond any range and fall back into it.
inline void FindTails(const FractalSettings& s, const FractalDerived& derived, double relative, int count,
                      double (&tail)[kMaxOctaves]) {
  const double fall = s.colourRoughness > 0.0 ? -kLogLacunarity / s.colourRoughness
                                              : -std::numeric_limits<double>::infinity();
  double log = std::clamp(-derived.invColourRoughness * Log1(relative), -1e300, 1e300);
  for (double& entry : tail) {
    entry = log;
    log += fall;
  }
  const Lanes d;
  for (int i = 0; i < count; i += static_cast<int>(hn::Lanes(d)))
    hn::StoreU(Exp(d, hn::LoadU(d, tail + i)), d, tail + i);
}

inline void WeighOctaves(const FractalSettings& s, const FractalDerived& d, trShadingInterface& si, int count,
                         ColourWeights& w) {
  const double cloudScale = si.DEV_CloudFeatureScalar();
  double y = cloudScale * s.featureScale * d.leadInFrequency;
  const bool tailed = cloudScale < 1.0;
  double tail[kMaxOctaves];
  if (tailed) FindTails(s, d, y, count, tail);
  for (int i = 0; i < count; ++i) {
    const double relative = std::min(y, 1.0);
    double u = 1.0;
    if (s.dampLeadIn)
      u = std::max(relative * 1.1 - 0.1, 0.0) * (1.0 - s.dampLeadInDryMix) + s.dampLeadInDryMix;
    const double m = tailed ? std::min(u, tail[i]) * d.flatColourAmpTable[i] : u * d.colourAmpTable[i];
    w.damping[i] = u;
    w.relative[i] = relative;
    w.amplitude[i] = m + si.DEV_FractalTailBoost();
    y *= kLacunarity;
  }
}

/// Colour where nothing feeds back from the sum.
inline double SumColourIndependent(const FractalSettings& s, const FractalDerived& derived,
                                   const OctaveRun& run, const ColourWeights& w, OctaveValues& values) {
  RunningVariation variation(s, derived, true);
  double* e = values.contribution;
  for (int i = 0; i < run.count; ++i) {
    variation.Step(i, values.contribution[i]);
    e[i] = variation.value;
  }
  const Lanes d;
  for (int i = 0; i < run.count; i += static_cast<int>(hn::Lanes(d))) {
    const V v = hn::LoadU(d, e + i);
    hn::StoreU(s.betterColourContinuity ? Exp(d, v) : FastExp(d, v), d, e + i);
  }
  return AddUp(run, derived.buoyancy, 0.0, values.a, e, w.amplitude);
}

/// The factor of the feedback method: octaves count for less where the sum so far is clear of the upper
/// threshold.
inline double FeedbackFactor(const FractalSettings& s, trShadingInterface& si, float maskRed, double sum,
                             double u, double amplitude, double relative) {
  const double z = GuardedDivide(u * 0.7, amplitude * si.DEV_FractalMultiplier());
  const double v = (s.colourOffset + sum + 0.5) * maskRed * si.DEV_FractalMultiplier();
  const double f = 1.0 - ((si.DEV_FractalUpperThreshold() - v) * z + 0.5);
  return std::min(std::max(f, 0.1), 2.0) * relative + (1.0 - relative);
}

/// Colour with damped octaves, or with the feedback method's factor in place of the exponential.
inline double SumColourSequential(const FractalSettings& s, const FractalDerived& derived,
                                  const OctaveRun& run, const ColourWeights& w, const OctaveValues& values,
                                  trShadingInterface& si, float maskRed) {
  const bool feedback = s.variationMethod == kFeedback;
  RunningVariation variation(s, derived, true);
  double sum = 0.0, factor = 1.0;
  for (int i = 0; i < run.count; ++i) {
    const double u = w.damping[i];
    if (!(u > 1e-12)) continue;
    if (!feedback) {
      variation.Step(i, u * values.contribution[i]);
      factor = s.betterColourContinuity ? Exp1(variation.value) : trFastExp()(variation.value);
    }
    double height = ((derived.buoyancy + values.a[i]) * factor - derived.buoyancy) * w.amplitude[i];
    const int remaining = run.count - 1 - i;
    if (remaining < 3) height *= run.fade[remaining];
    sum += height;
    if (feedback) factor = FeedbackFactor(s, si, maskRed, sum, u, w.amplitude[i], w.relative[i]);
  }
  return sum;
}

double Colour(const FractalSettings& s, const FractalDerived& d, trShadingInterface& si, float maskRed) {
  double sum = 0.0;
  OctaveRun run;
  if (std::fabs(s.colourContrast) > 1e-12 && PlanOctaves(s, d, si, true, run)) {
    OctaveValues values;
    EvaluateOctaves(s, d, run, values);
    ColourWeights weights;
    WeighOctaves(s, d, si, run.count, weights);
    sum = s.dampLeadIn || s.variationMethod == kFeedback
              ? SumColourSequential(s, d, run, weights, values, si, maskRed)
              : SumColourIndependent(s, d, run, weights, values);
  }
  double value = s.colourOffset + (std::isfinite(sum) ? sum : 0.0) + 0.5;
  if (s.clampHighColour) value = std::min(value, 1.0);
  if (s.clampLowColour) value = std::max(value, 0.0);
  return value;
}

}  // namespace HWY_NAMESPACE
}  // namespace ovfractal
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovfractal {
HWY_EXPORT(Displacement);
HWY_EXPORT(Colour);
}  // namespace ovfractal

double EvaluateFractalDisplacement(const FractalSettings& settings, const FractalDerived& derived,
                                   trShadingInterface& si) {
  return HWY_DYNAMIC_DISPATCH(ovfractal::Displacement)(settings, derived, si);
}

double EvaluateFractalColour(const FractalSettings& settings, const FractalDerived& derived,
                             trShadingInterface& si, float maskRed) {
  return HWY_DYNAMIC_DISPATCH(ovfractal::Colour)(settings, derived, si, maskRed);
}
#endif  // HWY_ONCE
