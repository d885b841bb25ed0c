// The alpine fractals: mountains whose octaves mind what coarser ones have made. What their parameters are,
// what derives from them, and the evaluations.
#pragma once

#include "fractal/noise_kernels.h"

/// Octaves of an alpine fractal at most; double precision ends them no later.
inline constexpr int kAlpineOctaves = 32;

/// The parameters of both alpine fractals under their nodes' names; lengths are metres, the others shares of
/// 0 to 1 unless said otherwise. The elder fractal reads those down to `ridgeSharpness`.
struct AlpineSettings {
  long seed = 0;
  double featureScale = 0, leadInScale = 0, smallestScale = 0;
  unsigned char obeySmoothingFilter = 0;
  double displacementAmplitude = 0, displacementOffset = 0, roughness = 0;
  double ridgeSharpness = 0;
  double valleyWidth = 0, valleySmoothness = 0;
  double leadInVariation = 0;
  double erosion = 0, gullyBending = 0;
};

/// Computed from the settings ahead of a render. Read-only during one.
struct AlpineDerived {
  FractalDerived octaves;              ///< scales, frequencies and number of the octaves
  int mainOctave = 0;                  ///< whose noise makes the mountains; those before it lead in
  double amplitude[kMaxOctaves] = {};  ///< of spurs and rock against the mountains
  double ridgeRadius = 0;              ///< how far from a crest, in noise units, it is rounded
  double floor = 0;                    ///< the noise, from 0 on, up to which a valley's floor reaches
  double span = 1;                     ///< and how much farther a summit of height 1 is
  double floorRadius = 0;  ///< how softly the flanks run out on the floor, in units of that height
  double meanHeight = 0;   ///< of the mountains
  double leadInWeight = 0, leadInShare = 0;
};

/// Height of a mountain's flank, `y` of the way up from the valley floor: steeper near the top.
inline double AlpineFlank(double y) { return y * (0.4 + 0.6 * y); }

/// Thread-safe; settings out of range are clamped to what the evaluations can bear.
AlpineDerived DeriveAlpine(const AlpineSettings& settings);

/// Height at the state's texture point, metres: mountains of the feature scale, raised and lowered by the
/// lead-in octaves, and spurs, and then rock, on them. Each of the two is looked up on the way down the
/// flanks that it stands on, so that it runs down them as gullies do, and crests meet where the ways part; is
/// damped by the slope that is there already; and fades out towards filled valleys (after Musgrave 1993, and
/// de Carpentier's sums driven by derivatives, 2012). Always finite. Thread-safe, no allocation; the same
/// bits on every instruction set.
double EvaluateAlpine(const AlpineSettings& settings, const AlpineDerived& derived, trShadingInterface& si);

/// The elder form: a ridged multifractal (Musgrave 1993), each octave weighted by the height of the one
/// before. The same contract.
double EvaluateRidgedMultifractal(const AlpineSettings& settings, const AlpineDerived& derived,
                                  trShadingInterface& si);
