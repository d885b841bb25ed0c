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

/// What a layer keeps in a render state while it asks for light within its own light. Whoever changes it puts
/// it back.
struct CloudThread {
  bool inLightingSample = false, inVoxelLighting = false;
  bool voxelSolving = false;  ///< a cell is being baked
  bool force3D = false;
  bool usesScatterColour = false;  ///< in place of the cloud's colour, for light that is scattered again
  int skipSubdivisionDepth = -1;   ///< rays of this depth pass through; -1 for none
  float densityScale = 1, shadowScale = 1;
  bool paintGiven = false;
  float paintValue = 1;

  // Where rays of the scatter model's own were scattered first, and where next.
  bool recordScatter = false, firstScatterFound = false;
  trVector firstScatterPoint, nextScatterPoint;
};

/// Puts a layer's scratch back, on every way out.
class CloudThreadGuard {
 public:
  explicit CloudThreadGuard(CloudThread& thread) : thread_(thread), saved_(thread) {}
  ~CloudThreadGuard() { thread_ = saved_; }
  CloudThreadGuard(const CloudThreadGuard&) = delete;
  CloudThreadGuard& operator=(const CloudThreadGuard&) = delete;

 private:
  CloudThread& thread_;
  const CloudThread saved_;
};
