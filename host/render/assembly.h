// The parts of a frame's surfaces, sorted by how they are traced, and how scenes are taken apart into them.
#pragma once

#include <memory>
#include <vector>

#include "host/render/grid_mesh.h"
#include "host/render/micro_mesh.h"
#include "host/render/tri_mesh.h"

namespace ovhost {

class RayScene;
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

/// Everything that stands in one frame of coordinates.
struct OV_API Assembly {
  trVector origin;  ///< vertices are relative to this point of the frame
  std::vector<std::unique_ptr<GridMesh>> grids;
  std::vector<std::unique_ptr<MicroMesh>> micros;
  std::vector<std::unique_ptr<TriMesh>> meshes;
  std::vector<std::unique_ptr<Population>> populations;

  bool IsEmpty() const { return grids.empty() && micros.empty() && meshes.empty() && populations.empty(); }
  /// What triangles and instances take, with their share of the ray tracer's hierarchies.
  std::uint64_t Bytes() const;
};

/// A scene that instances share, in the space that its own transform leads to.
struct Prototype {
  std::shared_ptr<const trScene> scene;
  Assembly parts;
  double finestEdge = 1e300;  ///< wanted length of a micropolygon's edge, metres: that of the nearest copy
  trBoundingBox box;          ///< of the parts, relative to their origin; filled in with `rays`
  std::shared_ptr<const RayScene> rays;
};

/// What a frame's scenes have in common.
struct SharedParts {
  trView view;             ///< for what is made only as finely as it is seen
  std::uint64_t seed = 0;  ///< of the render
  /// Each scene once, those within others before them.
  std::vector<std::unique_ptr<Prototype>> prototypes;
  /// Triangles that inflators made.
  std::vector<std::unique_ptr<trScene>> inflated;
};

/// Sets how finely prototypes are diced: as their nearest copies ask for, within reason.
void FindFinestEdges(const Assembly& parts, SharedParts& shared, double edgePixels);

/// From a copy's local space to that of what holds its population.
trTransform<double> OuterFromInstance(const Population& population, const Instance& instance);
/// Makes the instances of a population, whose prototypes must be set, relative to `origin`. Those that stand
/// nowhere finite, are flat, or have no scene are left out.
OV_API void PlaceInstances(Population& population, const trVector& origin);

/// Has every element of a scene's particles inflated into one scene of triangles in the world, each with its
/// particle's table index as its part. `view` is what elements far away are thinned out for.
std::unique_ptr<trScene> InflateParticles(const trScene& particles, const trView& view, std::uint64_t seed);

/// Where a scene comes from, for its parts to tell.
struct SceneSource {
  const trBase* node = nullptr;  ///< the scene maker
  int nodeId = 0;                ///< 1 + the number of the scene maker
};

/// Triangles of a part's scene, as they are.
std::unique_ptr<TriMesh> MakeTriMesh(const SurfacePart& part, const std::vector<std::int32_t>& sceneTris,
                                     const trVector& origin);

/// Takes a scene and its groups apart into `assembly`, whose origin must be set. Surfaces with a geometry
/// shader become base meshes to dice; those with displacement, where the scene lets its triangles be divided,
/// roots of displaced meshes; all others triangles as they are; particles become instances of prototypes,
/// which are added to `shared` as they are met, or triangles. After StartRender, as shaders are asked whether
/// they displace.
OV_API void GatherParts(const trScene& scene, const SceneSource& source, Assembly& assembly,
                        SharedParts& shared);

}  // namespace ovhost
