// Normals of diced surfaces.
#pragma once

#include <vector>

#include "host/render/dice/patch_edges.h"

namespace ovhost {

/// Sets the vertices' normals: the area-weighted mean of the faces round each, border vertices gathering from
/// every patch they stand in.
void SmoothNormals(GridMesh& mesh, const std::vector<PatchEdges>& edges);

}  // namespace ovhost
