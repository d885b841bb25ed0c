// The parts of a frame's surfaces, sorted by how they are traced.
#pragma once

#include <memory>
#include <vector>

#include "host/render/parts/grid_mesh.h"
#include "host/render/parts/micro_mesh.h"
#include "host/render/parts/population.h"
#include "host/render/parts/tri_mesh.h"

namespace ovhost {

class RayScene;

/// Everything that stands in one frame of coordinates.
struct OV_API Assembly {
  trVector origin;  ///< vertices are relative to this point of the frame
  std::vector<std::unique_ptr<GridMesh>> grids;
  std::vector<std::unique_ptr<MicroMesh>> micros;
  std::vector<std::unique_ptr<TriMesh>> meshes;
  std::vector<std::unique_ptr<Population>> populations;

  bool IsEmpty() const { return grids.empty() && micros.empty() && meshes.empty() && populations.empty(); }
  template <typename Use>
  void ForEachSurface(const Use& use) const {
    for (const auto& grid : grids) use(*grid);
    for (const auto& mesh : micros) use(*mesh);
    for (const auto& mesh : meshes) use(*mesh);
  }
  /// What surfaces and instances take, with their share of the ray tracer's hierarchies.
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

}  // namespace ovhost
