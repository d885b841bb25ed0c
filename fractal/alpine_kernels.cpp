// The octave sums of the alpine fractals. Octaves are looked up in three batches: the mountains with their
// lead-in, four octaves of spurs, and the rock, since what bends and damps a batch is the slope of those
// before it.
#include "fractal/alpine_kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "fractal/alpine_kernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "core/guarded.h"
#include "core/noise_slope.h"
#include "fractal/octave_noise-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovfractal {
namespace HWY_NAMESPACE {

inline constexpr std::uint32_t kAlpineSeed = 70000;
inline constexpr int kSpurs = 4;
/// How much lower than its crest a spur is where its noise is 1, twice over; it brings the mean to about 0.
inline constexpr double kSpurDepth = 2.6;
/// How strongly a slope damps what comes onto it: spurs make a mountain's shape, rock only covers it.
inline constexpr double kSpurDamping = 0.05, kRockDamping = 0.3;
/// Squared slope of the noise, per cell, below which a bend gives way: on summits, where a step down to the
/// valley would lead anywhere, and would cram what is looked up there.
inline constexpr double kLeastSlope = 1.0;

/// The noise of octaves and its slopes per wavelength of each, entries numbered as the octaves are.
struct SlopeNoise {
  double value[kMaxOctaves], x[kMaxOctaves], y[kMaxOctaves], z[kMaxOctaves];
  double fold[kMaxOctaves];  ///< distance of the noise from 0, its crease rounded

  /// Along the surface whose normal is `n`.
  HWY_INLINE trVector Slope(int i, const trVector& n) const {
    const trVector slope(x[i], y[i], z[i]);
    return slope - n * Dot(slope, n);
  }
};

/// Looks up octaves `begin` to `end` of the point `q`, in lead-in wavelengths. `filter` is that of a run.
inline void LookUp(const AlpineSettings& s, const AlpineDerived& derived, const trVector& q, double filter,
                   int begin, int end, SlopeNoise& noise) {
  const Lanes d;
  const int lanes = static_cast<int>(hn::Lanes(d)), padded = (end - begin + 7) / 8 * 8;
  double x[kMaxOctaves], y[kMaxOctaves], z[kMaxOctaves];
  for (int i = 0; i < padded; i += lanes) {
    const V scale = hn::LoadU(d, kPowers.space + begin + i);
    hn::StoreU(hn::Mul(hn::Set(d, q.x), scale), d, x + i);
    hn::StoreU(hn::Mul(hn::Set(d, q.y), scale), d, y + i);
    hn::StoreU(hn::Mul(hn::Set(d, q.z), scale), d, z + i);
  }
  const auto seed = static_cast<std::uint32_t>(s.seed) + kAlpineSeed + static_cast<std::uint32_t>(begin);
  trNoise3SlopeBatch({x, y, z, nullptr, seed, 1, padded},
                     {noise.value + begin, noise.x + begin, noise.y + begin, noise.z + begin});
  const V crest = hn::Set(d, derived.ridgeRadius * derived.ridgeRadius);
  for (int i = begin; i < begin + padded; i += lanes) {
    const V f = hn::Mul(hn::LoadU(d, derived.octaves.frequency + i), hn::Set(d, filter));
    const V wide = hn::Add(f, hn::Mul(hn::Mul(f, f), hn::Set(d, 8.0)));
    const V n = hn::LoadU(d, noise.value + i);
    hn::StoreU(hn::Sqrt(hn::Add(hn::Add(hn::Mul(n, n), hn::Mul(wide, wide)), crest)), d, noise.fold + i);
  }
}
static_assert(kAlpineOctaves + 7 < kMaxOctaves, "whole vectors from any octave on stay within the tables");

/// From a point towards the line where the noise of octave `i` is 0, by one step of Newton's method, in
/// wavelengths of it. What is looked up part of that way off runs straight down the flanks. The way is smooth
/// over the line, where it is 0.
HWY_INLINE trVector WayToCrease(const SlopeNoise& noise, int i, const trVector& slope) {
  return slope * (-noise.value[i] / (slope.LengthSquared() + kLeastSlope));
}

/// What there is at a point so far, in units of the mountains' height: height; the share of the way up from
/// the valley floor; slope per feature scale; and where the next octaves look.
struct Ground {
  double height = 0, rise = 0;
  trVector slope, q;
};

/// The mountains: flanks that rise from the floors of the valleys, the lines where the noise is 0, to summits
/// of all heights where it is farthest from that.
HWY_INLINE void RaiseMountains(const AlpineSettings& s, const AlpineDerived& d, const trVector& normal,
                               const SlopeNoise& noise, Ground& ground) {
  const int m = d.mainOctave;
  const trVector slope = noise.Slope(m, normal);
  const double x = (noise.fold[m] - d.floor) / d.span;
  const double root = std::sqrt(x * x + d.floorRadius * d.floorRadius);
  const double y = 0.5 * (x + root);
  ground.height = AlpineFlank(y);
  ground.rise = y;
  const double perFold = (0.4 + 1.2 * y) * 0.5 * (1.0 + GuardedDivide(x, root)) / d.span;
  ground.slope = slope * (perFold * GuardedDivide(noise.value[m], noise.fold[m]));
  ground.q += WayToCrease(noise, m, slope) * (s.gullyBending / kPowers.space[m]);
}

/// How strongly octaves are that come onto the ground: less where it is steep, and where it is low.
HWY_INLINE double WeightOn(const AlpineSettings& s, const Ground& ground, double damping) {
  const double dry = SmoothStep(ground.rise * 1.4 - 0.25);
  const double filled = 1.0 - s.valleySmoothness * (1.0 - dry);
  return filled / (1.0 + damping * s.erosion * ground.slope.LengthSquared());
}

/// Spurs or rock: octaves `begin` to `end`, sharp along their crests, about a mean of 0.
HWY_INLINE void AddOctaves(const AlpineSettings& s, const AlpineDerived& d, const trVector& normal,
                           const OctaveRun& run, int begin, int end, double damping, const SlopeNoise& noise,
                           Ground& ground) {
  const double weight = WeightOn(s, ground, damping);
  const bool othersFollow = end < run.count;
  trVector slopeSum, way;
  double sum = 0;
  for (int i = begin; i < end; ++i) {
    double amplitude = d.amplitude[i];
    const int remaining = run.count - 1 - i;
    if (remaining < 3) amplitude *= run.fade[remaining];
    const double n = noise.value[i], fold = noise.fold[i], shallow = 1.0 / (1.0 + fold);
    sum += amplitude * (0.45 - kSpurDepth * fold * shallow);
    if (!othersFollow) continue;
    const trVector slope = noise.Slope(i, normal);
    const double perNoise = -kSpurDepth * shallow * shallow * GuardedDivide(n, fold);
    slopeSum += slope * (amplitude * perNoise * kPowers.space[i - d.mainOctave]);
    way += WayToCrease(noise, i, slope) * (1.0 / kPowers.space[i]);
  }
  ground.height += weight * sum;
  ground.rise += weight * sum;
  ground.slope += slopeSum * weight;
  ground.q += way * (0.5 * s.gullyBending);
}

/// The massifs that the lead-in octaves make of the mountains: what their height is multiplied by.
HWY_INLINE double Massif(const AlpineDerived& d, const SlopeNoise& noise) {
  double sum = 0;
  for (int i = 0; i < d.mainOctave; ++i) sum += noise.value[i];
  const double t = SmoothStep(0.5 + 0.9 * sum * d.leadInWeight);
  return 1.0 - d.leadInShare * (1.0 - t);
}

/// Plans the octaves at the state's texture point; false when there is none.
HWY_INLINE bool Plan(const AlpineSettings& s, const AlpineDerived& d, trShadingInterface& si, trVector& q,
                     OctaveRun& run) {
  q = si.Pt() * d.octaves.leadInFrequency;
  const double footprint = s.obeySmoothingFilter ? std::max(si.SmoothSize(), 0.0) : 0.0;
  run.filter = footprint * 0.4;
  return run.EndAt(d.octaves.octaves, OctaveLimit(d.octaves, q, footprint, 0.75));
}

double Alpine(const AlpineSettings& s, const AlpineDerived& d, trShadingInterface& si) {
  Ground ground;
  OctaveRun run;
  if (std::fabs(s.displacementAmplitude) <= 1e-12 || !Plan(s, d, si, ground.q, run) ||
      run.count <= d.mainOctave)
    return s.displacementOffset;
  SlopeNoise noise;
  const trVector normal = si.Ng();
  const int spurs = d.mainOctave + 1, rock = std::min(spurs + kSpurs, run.count);
  LookUp(s, d, ground.q, run.filter, 0, spurs, noise);
  RaiseMountains(s, d, normal, noise, ground);
  // Mountains that a footprint swallows sink to their mean.
  const int left = run.count - 1 - d.mainOctave;
  if (left < 3) ground.height = d.meanHeight + (ground.height - d.meanHeight) * run.fade[left];
  if (spurs < rock) {
    LookUp(s, d, ground.q, run.filter, spurs, rock, noise);
    AddOctaves(s, d, normal, run, spurs, rock, kSpurDamping, noise, ground);
  }
  if (rock < run.count) {
    LookUp(s, d, ground.q, run.filter, rock, run.count, noise);
    AddOctaves(s, d, normal, run, rock, run.count, kRockDamping, noise, ground);
  }
  const double height = s.displacementOffset + s.displacementAmplitude * Massif(d, noise) * ground.height;
  return std::isfinite(height) ? height : s.displacementOffset;
}

double RidgedMultifractal(const AlpineSettings& s, const AlpineDerived& d, trShadingInterface& si) {
  trVector q;
  OctaveRun run;
  if (std::fabs(s.displacementAmplitude) <= 1e-12 || !Plan(s, d, si, q, run)) return s.displacementOffset;
  run.fourD = false;
  run.SetAll(q, 0.0, {});
  double noise[kMaxOctaves];
  const auto seed = static_cast<std::uint32_t>(s.seed) + kAlpineSeed;
  trNoise3Batch({run.x, run.y, run.z, nullptr, seed, 1, run.Padded()}, noise);
  double sum = 0, weight = 1;
  for (int i = 0; i < run.count; ++i) {
    const double f = d.octaves.frequency[i] * run.filter, wide = f + 8.0 * f * f;
    const double radius = d.ridgeRadius * d.ridgeRadius + wide * wide;
    const double ridge = 1.0 - 1.5 * std::sqrt(noise[i] * noise[i] + radius);
    const double signal = ridge * ridge * weight;
    double amplitude = d.amplitude[i];
    const int remaining = run.count - 1 - i;
    if (remaining < 3) amplitude *= run.fade[remaining];
    sum += amplitude * (signal - 0.5 * weight);
    weight = std::clamp(2.0 * signal, 0.0, 1.0);
  }
  const double height = s.displacementOffset + s.displacementAmplitude * sum;
  return std::isfinite(height) ? height : s.displacementOffset;
}

}  // namespace HWY_NAMESPACE
}  // namespace ovfractal
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovfractal {
HWY_EXPORT(Alpine);
HWY_EXPORT(RidgedMultifractal);
}  // namespace ovfractal

double EvaluateAlpine(const AlpineSettings& settings, const AlpineDerived& derived, trShadingInterface& si) {
  return HWY_DYNAMIC_DISPATCH(ovfractal::Alpine)(settings, derived, si);
}

double EvaluateRidgedMultifractal(const AlpineSettings& settings, const AlpineDerived& derived,
                                  trShadingInterface& si) {
  return HWY_DYNAMIC_DISPATCH(ovfractal::RidgedMultifractal)(settings, derived, si);
}
#endif  // HWY_ONCE
