// Displaced meshes: triangles cut until their edges are as short as a pixel.
#pragma once

#include <array>
#include <vector>

#include "host/render/parts/grid_mesh.h"

namespace ovhost {

/// A displaced vertex, 48 bytes. Points are relative to the mesh's origin, texture points to its texture
/// origin, so that single precision serves anywhere.
struct MicroVertex {
  trFVector point, base;  ///< displaced, and where the undisplaced surface was
  trFVector texture;      ///< as the displacement left it
  PackedNormal normal;    ///< of the displaced surface, smoothed over the faces around
  PackedNormal baseNormal, textureNormal;
};
static_assert(sizeof(MicroVertex) == 48);

/// The triangles of a scene (not of its groups) that its surface shaders displace, as triangles a pixel or so
/// long. Where three or more meet, all have the very same point.
struct OV_API MicroMesh : SurfacePart {
  MicroMesh() : SurfacePart(Kind::kMicro) {}

  std::vector<std::int32_t> roots;  ///< table indices of the scene's triangles that it is made of

  trVector origin, textureOrigin;
  std::vector<MicroVertex> vertices;
  std::vector<std::array<std::uint32_t, 3>> triangles;
  std::vector<std::int32_t> sceneTris;  ///< the scene's triangle that each is part of
};

}  // namespace ovhost
