// The octave loop behind all fractal shaders: what a fractal's parameters are, what is derived from them
// once, and the two evaluations, displacement and colour.
#pragma once

#include "core/shading.h"

inline constexpr int kMaxOctaves = 40;
/// Ratio of the frequencies of neighbouring octaves, and its reciprocal.
inline constexpr double kLacunarity = 1.92;
inline constexpr double kInverseLacunarity = 0.5208333333333334;

/// Noise flavours a menu offers; 7 and 8 (cell borders, raised and sunk) work without being in it.
enum FractalFlavour : long {
  kPerlin = 0,
  kPerlinBillows = 1,
  kPerlinRidges = 2,
  kPerlinMix1 = 3,
  kPerlinMix2 = 4,
  kVoronoiBillows = 5,
  kVoronoiRidges = 6
};

/// How the octaves' amplitudes vary over space. Feedback is set by cloud presets alone.
enum FractalVariation : long {
  kClampedMultifractal = 0,
  kUnclampedMultifractal = 1,
  kMultiScaleModulator = 2,
  kFeedback = -100
};

/// The parameters that the evaluations read, under their nodes' names. Lengths are metres. A node declares
/// them and thereby gives them their defaults; switches are 0 or 1.
struct FractalSettings {
  long seed = 0;
  double featureScale = 0, leadInScale = 0, smallestScale = 0;
  long noiseOctaves = 0;
  unsigned char dampLeadIn = 0;
  double dampLeadInDryMix = 0;
  double globalVarDamper = 0;
  unsigned char obeySmoothingFilter = 0;
  trVector noiseStretch;

  double colourContrast = 0, colourOffset = 0, colourRoughness = 0;
  unsigned char clampHighColour = 0, clampLowColour = 0;

  double displacementAmplitude = 0, displacementOffset = 0, displacementRoughness = 0;
  double displacementSpikeLimit = 0;
  unsigned char continueSpikeLimit = 0, adjustCoastline = 0;
  double coastlineAltitude = 0, coastlineSmoothing = 0;

  long noiseFlavour = 0;
  double ridgeSmoothing = 0, gullySmoothing = 0;
  double noiseVariation = 0;
  long variationMethod = 0;
  double buoyancyFromVariation = 0, clumpingOfVariation = 0;
  unsigned char betterColourContinuity = 0, betterDisplacementContinuity = 0;

  unsigned char distortByNormal = 0;
  double distortionByNormal = 0;
  long leadInWarpEffect = 0;
  double leadInWarpAmount = 0;
  unsigned char lessWarpAtFeatureScale = 0, allowVerticalWarp = 0;

  unsigned char fourDNoise = 0;
  double fourDNoiseSpeed = 0;
  long referenceFrameNumber = 0;
};

/// Everything computed from the settings ahead of a render. Read-only during one.
struct FractalDerived {
  double ridgeSoft = 0, gullySoft = 0, invRidgeSoft = 0, invGullySoft = 0;
  double buoyancy = 0;
  bool warpActive = false;
  trVector invStretch;
  double leadInWavelength = 0, leadInFrequency = 0;
  double invColourRoughness = 0;
  double colourAmpRatio = 0;
  double clump = 0;

  int octaves = 0;  ///< 0 to kMaxOctaves
  /// Texture points nearer to the origin (in lead-in wavelengths, squared), and footprints smaller (against
  /// the lead-in wavelength), end no octave and fade none.
  double clearRadiusSquared = 0, clearFootprint = 0;
  // One entry an octave.
  double varTable[kMaxOctaves] = {};
  double ampTable[kMaxOctaves] = {};
  double colourAmpTable[kMaxOctaves] = {};
  double flatColourAmpTable[kMaxOctaves] = {};
  double logSpikeLimit[kMaxOctaves] = {};
  double expSpikeLimit[kMaxOctaves] = {};  ///< the loop's exponential of logSpikeLimit
  double wavelength[kMaxOctaves] = {};     ///< metres
  double frequency[kMaxOctaves] = {};      ///< per metre
  /// Where the Voronoi flavours look an octave up, by the seeds of the primary and secondary noise.
  trVector primaryOffset[kMaxOctaves], secondaryOffset[kMaxOctaves];
};

/// Seeds of the noises of octave 0; octave i adds i. That the primary noise of octave i + 10 has the seed of
/// the secondary one of octave i is part of every existing landscape's shape.
inline constexpr std::uint32_t kPrimarySeed = 65536, kSecondarySeed = 65546;
/// The lead-in warp's noises along x, y and z start here, 10 apart.
inline constexpr std::uint32_t kWarpSeed = 65556, kWarpSeedStep = 10;
/// The seed that a noise of `settings` starts at; seeds wrap at 2^32.
inline std::uint32_t FirstSeed(const FractalSettings& settings, std::uint32_t base) {
  return static_cast<std::uint32_t>(settings.seed) + base;
}

/// The wavelength of the first octave, metres: at least twice the feature scale, at least 2e-6.
double LeadInWavelength(const FractalSettings& settings);
/// Octaves from the lead-in wavelength to the smallest scale: the nearest number, 0 to kMaxOctaves.
long OctavesForSmallestScale(double leadInWavelength, double smallestScale);
/// The smallest scale that OctavesForSmallestScale answers with `octaves`.
double SmallestScaleForOctaves(double leadInWavelength, long octaves);

/// Derives all of it; settings out of range are clamped to what the evaluations can bear. Thread-safe.
FractalDerived DeriveFractal(const FractalSettings& settings);

/// Displacement at the state's texture point, metres. Always finite: where the settings drive the sum out of
/// range the offset alone is left. Thread-safe, no allocation; the same bits on every instruction set.
double EvaluateFractalDisplacement(const FractalSettings& settings, const FractalDerived& derived,
                                   trShadingInterface& si);
/// Colour value there, 0 to 1 under the clamps. `maskRed` is the red of the colour mask, which the feedback
/// method takes into account. Always finite. Thread-safe, no allocation; the same bits on every instruction
/// set.
double EvaluateFractalColour(const FractalSettings& settings, const FractalDerived& derived,
                             trShadingInterface& si, float maskRed);
