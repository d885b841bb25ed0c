// What a cloud layer remembers of one ray from its march to its lighting, and what it keeps in a render
// state.
#pragma once

#include <cstdint>
#include <vector>

#include "core/atmosphere.h"

/// One step that takes something from the ray.
struct CloudStep {
  trFCol density;  ///< above the cloud's surface, before sharpness and extinction
  trFCol transmission;
  double lightSpot, enviroSpot;  ///< extents over which lighting may be shared, metres
  double spot;
  float thickness;  ///< of the depth modulator, 1 without one
};

/// A light as the ray sees it.
struct CloudLight {
  const trLightState* light;
  float phase, inversePhase;
  bool isShadowed;  ///< by volumes
};

/// A ray's record. Reused from ray to ray by one thread: the vectors keep their room.
struct CloudState {
  bool wantsEnviro = false;
  trFCol enviroUp, enviroDown;  ///< light from around, held from step to step
  int lastEnviroIndex = 0;
  int enviroPhase16 = 0, enviroPhase256 = 0;  ///< stagger its renewal between rays
  std::vector<CloudLight> lights;
  trVector direction;  ///< unit
  std::vector<CloudStep> steps;
  int numSteps = 0;
};

/// What a layer keeps in a render state while it asks for light within its own light. It holds for rays of
/// one depth of that asking: a ray that the host starts anew meanwhile, whose answer others may share, knows
/// nothing of it. Whoever changes it puts it back.
struct CloudThread {
  int subdivision = 0;  ///< trRenderState::Ray::subdivision of the rays that this holds for
  bool inLightingSample = false;
  bool voxelSolving = false;  ///< a cell is being baked
  bool force3D = false;
  bool usesScatterColour = false;  ///< in place of the cloud's colour, for light that is scattered again
  float densityScale = 1, shadowScale = 1;
  bool paintGiven = false;
  float paintValue = 1;

  bool isHidden = false;         ///< from rays of any depth but those towards lights
  bool inVoxelLighting = false;  ///< light that was scattered more than once is being gathered
};
