// Meshes of other programs, read by a process of its own, so that a damaged file costs a message.
#pragma once

#include <string>
#include <vector>

#include "core/api.h"
#include "host/object/codec/mesh_protocol.h"

namespace ovhost {

struct MeshReadOptions {
  double scale = 0;               ///< metres in the file's unit; 0 takes the file's word, or a metre
  double weld = 0;                ///< points nearer to each other are one, metres; 0 joins what is the same
  MeshUp up = MeshUp::kFilesOwn;  ///< y where the file doesn't say
};

/// All triangles of a file in one mesh, in the system's space. What is the same is there once.
struct ForeignMesh {
  std::vector<MeshPoint> points, texVerts, normals;
  std::vector<MeshTriangle> triangles;
  std::vector<MeshMaterial> materials;
  double metresPerUnit = 1;
  MeshUp up = MeshUp::kY;
  long leftOut = 0;  ///< points and lines, which are no surface
};

/// Reads a file of any of the formats that Assimp reads. Empty, or why it can't be. Thread-safe.
OV_API std::string ReadMeshFile(const std::string& path, const MeshReadOptions& options, ForeignMesh& mesh);

}  // namespace ovhost
