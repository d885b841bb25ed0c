// What a fractal's settings fix ahead of a render: scales, softness radii and the tables of its octaves.
#include <hwy/highway.h>

#include <algorithm>
#include <bit>

#include "core/guarded.h"
#include "fractal/noise_kernels.h"
#include "fractal/octave_math-inl.h"

// Plain code, but with this system's own exponential and logarithm, which no C library's version can change.
using ovfractal::HWY_NAMESPACE::Exp1;
using ovfractal::HWY_NAMESPACE::Log1;

namespace {

/// 1e-6 as single precision holds it: the smallest softness, scale and spike ratio.
constexpr double kTiny = 9.999999974752427e-07;
constexpr double kLogLacunarity = 0.6523251860396901;

double PowLacunarity(double exponent) { return Exp1(exponent * kLogLacunarity); }

/// e^x as a staircase read off the exponent bits (after Schraudolph, Neural Computation 11, 1999); the
/// amplitudes of existing landscapes hold its error.
double QuickExp(double x) {
  if (x > 20.0) return std::bit_cast<double>(std::uint64_t{0x41bcbc12} << 32);
  if (x < -20.0) return 0.0;
  const auto high =
      static_cast<std::uint32_t>(static_cast<std::int64_t>(x * 1512775.3951951822 + 1072632447.0));
  return std::bit_cast<double>(std::uint64_t{high} << 32);
}

double AmplitudeRatio(double roughness) { return roughness > 0.0 ? PowLacunarity(-1.0 / roughness) : 0.0; }

/// Highest log amplitude of octave `i` before its slope passes the spike limit.
double LogSpikeLimit(double nextWavelength, double amplitude, double spikeLimit) {
  const double ratio = nextWavelength / std::max(std::fabs(amplitude), 1e-12) * spikeLimit;
  return Log1(ratio > kTiny ? ratio : kTiny);
}

void FillOctaveTables(const FractalSettings& s, FractalDerived& d) {
  const double e0 = s.variationMethod < 1 ? 1.0 : QuickExp(-0.5 * s.noiseVariation);
  const double ampRatio = AmplitudeRatio(s.displacementRoughness);
  const double varRatio = std::sqrt(SafeReciprocal(d.clump));
  double wavelength = d.leadInWavelength, frequency = d.leadInFrequency;
  double amplitude = s.displacementAmplitude * e0, colour = s.colourContrast * e0,
         variation = s.noiseVariation;
  const double flatColour = colour;
  for (int i = 0; i < kMaxOctaves; ++i) {
    d.wavelength[i] = wavelength;
    d.frequency[i] = frequency;
    d.varTable[i] = variation;
    d.ampTable[i] = amplitude;
    d.colourAmpTable[i] = colour;
    d.flatColourAmpTable[i] = flatColour;
    d.primaryOffset[i] = trNoff3(static_cast<int>(FirstSeed(s, kPrimarySeed) + i));
    d.secondaryOffset[i] = trNoff3(static_cast<int>(FirstSeed(s, kSecondarySeed) + i));
    wavelength *= kInverseLacunarity;
    frequency *= kLacunarity;
    // The lead-in octaves, above the feature scale, are all of one height.
    if (wavelength < s.featureScale) {
      amplitude *= ampRatio;
      colour *= d.colourAmpRatio;
      variation *= varRatio;
    }
    d.logSpikeLimit[i] = LogSpikeLimit(wavelength, d.ampTable[i], s.displacementSpikeLimit);
    d.expSpikeLimit[i] =
        s.betterDisplacementContinuity ? Exp1(d.logSpikeLimit[i]) : trFastExp()(d.logSpikeLimit[i]);
  }
}

}  // namespace

double LeadInWavelength(const FractalSettings& s) {
  return std::max({std::fabs(s.leadInScale), 2.0 * std::fabs(s.featureScale), 1.9999999949504854e-06});
}

long OctavesForSmallestScale(double leadInWavelength, double smallestScale) {
  const double octaves = Log1(2.0 * leadInWavelength / std::max(smallestScale, kTiny)) / kLogLacunarity;
  return static_cast<long>(std::clamp(std::round(octaves), 0.0, double{kMaxOctaves}));
}

double SmallestScaleForOctaves(double leadInWavelength, long octaves) {
  return 2.0 * leadInWavelength * PowLacunarity(-static_cast<double>(octaves));
}

FractalDerived DeriveFractal(const FractalSettings& s) {
  FractalDerived d;
  d.ridgeSoft = std::max(s.ridgeSmoothing * 0.1875, kTiny);
  d.gullySoft = std::max(s.gullySmoothing * 0.1875, kTiny);
  d.invRidgeSoft = 1.0 / d.ridgeSoft;
  d.invGullySoft = 1.0 / d.gullySoft;
  d.buoyancy = s.variationMethod == kMultiScaleModulator ? s.buoyancyFromVariation * 0.5 : 0.0;
  d.warpActive = s.leadInWarpEffect != 0 && s.leadInWarpAmount != 0.0;
  d.invStretch = {SafeReciprocal(s.noiseStretch.x), SafeReciprocal(s.noiseStretch.y),
                  SafeReciprocal(s.noiseStretch.z)};
  d.leadInWavelength = LeadInWavelength(s);
  d.leadInFrequency = SafeReciprocal(d.leadInWavelength);
  d.invColourRoughness = SafeReciprocal(s.colourRoughness);
  d.colourAmpRatio = AmplitudeRatio(s.colourRoughness);
  // Clumping below -1 has no root; it counts as -1.
  d.clump = std::sqrt(std::max(s.clumpingOfVariation + 1.0, 0.0));
  d.octaves = static_cast<int>(std::clamp(s.noiseOctaves, 0L, long{kMaxOctaves}));
  // The fade of the last octaves begins two octaves past the last; precision ends all at 31.
  const int clear = d.octaves + 2;
  d.clearRadiusSquared = clear < 31 ? std::ldexp(1.0, 2 * (29 - clear)) : 0.0;
  d.clearFootprint = PowLacunarity(-clear);
  FillOctaveTables(s, d);
  return d;
}
