// Meshes as binary PLY files.
#pragma once

#include <string>

#include "core/scene.h"

namespace ovhost {

/// Writes points, triangles and, where each point has one, normals of a scene (not of its groups); the z axis
/// is turned as in OBJ files. Empty, or why it can't be written.
std::string WritePly(const trScene& mesh, const std::string& path);

}  // namespace ovhost
