// What the program and its reader of foreign meshes say to each other over a socket.
//
// The reader gets a MeshRequest, answers with a MeshAnswer, and sends the tables that it counts after it, in
// the order of its counts.
#pragma once

#include <cstdint>

#include "core/vector.h"

namespace ovhost {

inline constexpr char kMeshMagic[8] = {'o', 'v', 'm', 'e', 's', 'h', '1', 0};

enum class MeshUp : std::int32_t { kFilesOwn = 0, kY, kZ };

struct MeshRequest {
  char magic[8] = {};
  char path[4096] = {};
  std::uint64_t freeMemory = 0;  ///< bytes
  double scale = 0;              ///< metres in the file's unit; 0 takes the file's word
  double weld = 0;               ///< points nearer to each other are one, metres; 0 joins what is the same
  MeshUp up = MeshUp::kFilesOwn;
  std::int32_t seconds = 0;  ///< of processor time
};

/// In the system's space: metres, y up, and a front of a triangle a, b, c that (c - a) x (b - a) points to.
using MeshPoint = trFVector;
/// Indices count from 0; -1 is none.
struct MeshTriangle {
  std::int32_t point[3] = {}, texVert[3] = {}, normal[3] = {}, material = 0;
};

/// Images by the names that the file has for them.
struct MeshMaterial {
  enum Image { kColour, kOpacity, kRoughness, kMetalness, kLuminosity, kDisplacement, kImages };
  char name[256] = {};
  float colour[3] = {0.5f, 0.5f, 0.5f}, luminosity[3] = {};
  // Below 0 where the file doesn't say.
  float opacity = -1, roughness = -1, metalness = -1, indexOfRefraction = -1;
  char image[kImages][1024] = {};
};

struct MeshAnswer {
  char magic[8] = {};
  std::int32_t isDone = 0;
  char problem[1020] = {};
  double metresPerUnit = 1;
  MeshUp up = MeshUp::kY;
  std::int32_t leftOut = 0;  ///< points and lines, which are no surface
  std::int64_t points = 0, texVerts = 0, normals = 0, triangles = 0, materials = 0;
};

}  // namespace ovhost
