// The parts of a frame's surfaces, sorted by how they are traced, and how scenes are taken apart into them.
#pragma once

#include <memory>
#include <vector>

#include "host/render/grid_mesh.h"
#include "host/render/tri_mesh.h"

namespace ovhost {

/// Everything that stands in one frame of coordinates.
struct Assembly {
  trVector origin;  ///< vertices are relative to this point of the frame
  std::vector<std::unique_ptr<GridMesh>> grids;
  std::vector<std::unique_ptr<TriMesh>> meshes;

  bool IsEmpty() const { return grids.empty() && meshes.empty(); }
};

/// Where a scene comes from, for its parts to tell.
struct SceneSource {
  const trBase* node = nullptr;  ///< the scene maker
  int nodeId = 0;                ///< 1 + the number of the scene maker
};

/// Takes a scene and its groups apart into `assembly`, whose origin must be set. Surfaces with a geometry
/// shader, or with displacement where the scene lets its triangles be divided, become base meshes to dice;
/// all others triangles as they are. After StartRender, as shaders are asked whether they displace.
OV_API void GatherParts(const trScene& scene, const SceneSource& source, Assembly& assembly);

}  // namespace ovhost
