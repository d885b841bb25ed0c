// Particles as copies of scenes that they share.
#pragma once

#include <vector>

#include "core/transform.h"
#include "host/render/parts/surface_part.h"

namespace ovhost {

struct Prototype;

/// Copies within copies go this deep; deeper ones are left out.
constexpr int kMaxInstanceLevels = 3;

/// One copy of a prototype: 56 bytes. Offsets are single precision, but the same for every ray, so a copy far
/// from the eye stands a rounding aside and doesn't jitter.
struct Instance {
  float centre[3];          ///< where the prototype's origin stands, relative to that of what holds the copy
  float localFromOuter[9];  ///< row-major, linear
  std::uint32_t prototype;  ///< number in the population
  std::int32_t particle;    ///< table index
};

/// The particles of one scene, each a copy of some prototype.
struct Population {
  const trScene* scene = nullptr;  ///< holds the particles and their inflator
  const trBase* node = nullptr;
  int nodeId = 0;
  unsigned rayKinds = kAllRays;
  bool isHoldout = false;
  std::vector<const Prototype*> prototypes;
  std::vector<Instance> instances;
};

/// What the ray tracer's hierarchy takes for a copy, bytes.
constexpr std::uint64_t kHierarchyBytesPerCopy = 100;

/// From a copy's local space to that of what holds its population.
trTransform<double> OuterFromInstance(const Population& population, const Instance& instance);
/// Makes the instances of a population, whose prototypes must be set, relative to `origin`. Those that stand
/// nowhere finite, are flat, or have no scene are left out.
OV_API void PlaceInstances(Population& population, const trVector& origin);

}  // namespace ovhost
