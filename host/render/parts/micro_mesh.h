// Displaced meshes: triangles cut until their edges are as short as a pixel.
#pragma once

#include "host/render/parts/packed_normal.h"
#include "host/render/parts/triangle_part.h"

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
inline const trFVector& PointOf(const MicroVertex& vertex) { return vertex.point; }

/// The triangles of a scene (not of its groups) that its surface shaders displace, as triangles a pixel or so
/// long. Where three or more meet, all have the very same point.
struct OV_API MicroMesh final : TrianglePart<MicroVertex> {
  using TrianglePart::TrianglePart;

  std::vector<std::int32_t> roots;  ///< table indices of the scene's triangles that it is made of
  trVector origin, textureOrigin;

  std::uint64_t Bytes() const override;
  void Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
              SurfacePoint& point) const override;
  void FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                 trShadingInterface& si) const override;
  double Curvature(const SurfaceHit& hit) const override;
};

}  // namespace ovhost
