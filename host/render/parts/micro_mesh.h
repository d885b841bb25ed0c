// Displaced meshes: triangles cut until their edges are as short as a pixel.
#pragma once

#include <array>
#include <vector>

#include "host/render/parts/packed_normal.h"
#include "host/render/parts/surface_part.h"

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
struct OV_API MicroMesh final : SurfacePart {
  using SurfacePart::SurfacePart;

  std::vector<std::int32_t> roots;  ///< table indices of the scene's triangles that it is made of

  trVector origin, textureOrigin;
  std::vector<MicroVertex> vertices;
  std::vector<std::array<std::uint32_t, 3>> triangles;
  std::vector<std::int32_t> sceneTris;  ///< the scene's triangle that each is part of

  TracedShape Shape() const override;
  std::uint64_t Bytes() const override;
  size_t NumPrimitives() const override { return triangles.size(); }
  void Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
              SurfacePoint& point) const override;
  void FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                 trShadingInterface& si) const override;
  double Curvature(const SurfaceHit& hit) const override;
  trVector PointAt(std::uint32_t primitive, double u, double v) const override;
};

}  // namespace ovhost
