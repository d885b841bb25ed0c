// The height of the old all-in-one globe: continents, mountains and a rippled sea.
#pragma once

#include "core/vector.h"

struct PlanetHeightParams {
  long seed = 0;
  double continentScale = 5e6;  ///< metres
  double continentAmplitude = 1000;
  double amplitudeVariation = 1;
  double continentRoughness = 1;
  double roughnessVariation = 1;
  double mountainScale = 5000;  ///< metres; finer octaves have the mountains' roughness
  double mountainRoughness = 0.5;
  double oceanLevel = 0;  ///< metres
  long octaves = 32;
  double warpAmount = 1;
  double slopeClip = 0.25;  ///< largest height of an octave, in its sizes
  double coastlineErosion = 1000;
};

struct PlanetHeightResult {
  double height = 0;  ///< of the ground, metres
  double rock = 0;    ///< how rocky the ground is
  double ocean = 0;   ///< height of the sea, ripples included, metres
};

/// Height at a point of the world (metres). Thread-safe.
PlanetHeightResult PlanetHeight(const trVector& point, const PlanetHeightParams& params);
