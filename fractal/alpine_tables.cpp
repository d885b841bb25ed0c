// What the settings of an alpine fractal fix ahead of a render.
#include <hwy/highway.h>

#include <algorithm>

#include "core/guarded.h"
#include "fractal/alpine_kernels.h"
#include "fractal/octave_math-inl.h"

// Plain code, but with this system's own exponential and logarithm, which no C library's version can change.
using ovfractal::HWY_NAMESPACE::Exp1;
using ovfractal::HWY_NAMESPACE::Log1;

namespace {

constexpr double kLogLacunarity = 0.6523251860396901;
constexpr double kLeastScale = 1e-6;  // metres

/// Octaves from one wavelength down to another, 0 where that is longer.
int OctavesBetween(double from, double to, int most) {
  const double octaves = Log1(std::clamp(from / to, 1.0, 1e12)) / kLogLacunarity;
  return std::min(static_cast<int>(std::lround(octaves)), most);
}

/// Mean height of the mountains. Their noise is nearly normal.
double MeanHeight(double floor, double span) {
  constexpr double kDeviation = 0.27;
  double sum = 0, weights = 0;
  for (double n = 0; n < 4 * kDeviation; n += 0.01) {
    const double y = std::max((n - floor) / span, 0.0);
    const double weight = Exp1(-0.5 * n * n / (kDeviation * kDeviation));
    sum += weight * AlpineFlank(y);
    weights += weight;
  }
  return sum / weights;
}

double Share(double x) { return std::clamp(x, 0.0, 1.0); }

}  // namespace

AlpineDerived DeriveAlpine(const AlpineSettings& s) {
  AlpineDerived d;
  const double feature = std::clamp(std::fabs(s.featureScale), kLeastScale, 1e9);
  d.mainOctave = OctavesBetween(std::fabs(s.leadInScale), feature, 12);
  // Wavelengths are counted from the mountains', so that those have the feature scale whatever leads in.
  FractalSettings octaves;
  octaves.leadInScale = feature;
  for (int i = 0; i < d.mainOctave; ++i) octaves.leadInScale *= kLacunarity;
  const double smallest = std::max(std::fabs(s.smallestScale), kLeastScale);
  octaves.noiseOctaves =
      std::min(d.mainOctave + 1 + OctavesBetween(2.0 * feature, smallest, kAlpineOctaves), kAlpineOctaves);
  d.octaves = DeriveFractal(octaves);

  const double gain = s.roughness > 0 ? Exp1(-kLogLacunarity / s.roughness) : 0.0;
  for (int i = 0; i < kMaxOctaves; ++i) d.amplitude[i] = i <= d.mainOctave ? 1.6 : d.amplitude[i - 1] * gain;
  d.ridgeRadius = std::max(0.1 * (1.0 - Share(s.ridgeSharpness)), 1e-6);
  d.floor = 0.35 * Share(s.valleyWidth);
  d.span = 0.4;
  d.floorRadius = std::max(0.5 * Share(s.valleySmoothness), 1e-6);
  d.meanHeight = MeanHeight(d.floor, d.span);
  if (d.mainOctave > 0) {
    d.leadInWeight = 1.0 / std::sqrt(d.mainOctave);
    d.leadInShare = Share(s.leadInVariation);
  }
  return d;
}
