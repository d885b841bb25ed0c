// What the planet atmosphere remembers of one ray between planning its samples and evaluating them.
#pragma once

#include <cstdint>
#include <vector>

#include "core/atmosphere.h"

/// One sample's stretch of the ray and what was found there. Points are of the world, metres; extinctions are
/// optical depths of the stretch once evaluated.
struct AtmosphereSegment {
  trVector start, end, mid;
  trVector jittered;             ///< where the stretch is lit
  double lightSpot, enviroSpot;  ///< extents over which lighting may be shared, metres, the same on all axes
  trFCol blueskyExtinction, hazeExtinction;
  trFCol blueskyDirect, blueskyEnviro, hazeDirect, hazeEnviro;
  trFCol opticalDepth, opacity;  ///< of all that takes light away
  double length;
};

/// A ray's record. Reused from ray to ray by one thread: the vectors keep their room.
struct AtmosphereRayData {
  trFCol blueskyDensityColour, blueskyHorizon, hazeHorizon;
  bool wantsEnviro = false;
  trFCol enviroDirect, enviroHazeDirect;  ///< sky light held from sample to sample
  std::uint32_t enviroValid = 0;
  int enviroPhase16 = 0, enviroPhase256 = 0;  ///< stagger the renewal of sky light between rays
  int lightCount = 0;
  std::vector<const trLightState*> lights;
  std::vector<double> hazePhase, blueskyPhase;  ///< per light
  trVector rayDirectionScaled;
  std::vector<AtmosphereSegment> segments;

  int segmentCount = 0;
  /// Media are worked out for a block of samples at a time, from the one asked for on.
  int blockSize = 1, blockFirst = 0, blockEnd = 0;
};
