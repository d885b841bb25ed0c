// Taking scenes apart into what is diced and what is traced as it is.
#pragma once

#include "host/render/parts/assembly.h"

namespace ovhost {

/// Where a scene comes from, for its parts to tell.
struct SceneSource {
  const trBase* node = nullptr;  ///< the scene maker
  int nodeId = 0;                ///< 1 + the number of the scene maker
};

/// Triangles of a scene, as they are.
std::unique_ptr<TriMesh> MakeTriMesh(const PartSource& source, const std::vector<std::int32_t>& sceneTris,
                                     const trVector& origin);

/// Takes a scene and its groups apart into `assembly`, whose origin must be set. Surfaces with a geometry
/// shader become base meshes to dice; those with displacement, where the scene lets its triangles be divided,
/// roots of displaced meshes; all others triangles as they are; particles become instances of prototypes,
/// which are added to `shared` as they are met, or triangles. After StartRender, as shaders are asked whether
/// they displace.
OV_API void GatherParts(const trScene& scene, const SceneSource& source, Assembly& assembly,
                        SharedParts& shared);

}  // namespace ovhost
