// Meshes made finer, without a change of their shape.
#pragma once

#include "core/scene.h"

/// Splits every triangle in four, `levels` times over; all have texture vertices and normals. What `node`
/// reports may end it early, with what has been done. 0, with an error and the mesh as it was, where that
/// would be too much.
long SubdivideMesh(trScene& scene, long levels, trBase& node);
