// Surfaces traced as the triangles that they are.
#pragma once

#include "host/render/parts/triangle_part.h"

namespace ovhost {

/// The triangles of one scene (not of its groups) that aren't diced. What shading asks for beyond the points
/// stays in the scene's tables.
///
/// Vertices are points of the scene in world space, relative to whatever the rays' origins are relative to;
/// one more at the end, since rays are traced with loads of 16 bytes. `sceneTris` is empty where a triangle's
/// index is its number + 1.
struct OV_API TriMesh final : TrianglePart<trFVector, 1> {
  using TrianglePart::TrianglePart;

  std::vector<char> mayDisplace;  ///< by the scene's material: whether its surface shader displaces

  /// The scene whose particles were inflated to these triangles, each with its particle as its part, or null.
  const trScene* particles = nullptr;

  bool MayDisplace(const trTri& tri) const {
    const size_t material = tri.material >= 1 ? static_cast<size_t>(tri.material) : 1;
    return mayDisplace[material < mayDisplace.size() ? material : 1] != 0;
  }
  std::int32_t SceneTri(std::uint32_t triangle) const {
    return sceneTris.empty() ? static_cast<std::int32_t>(triangle) + 1 : sceneTris[triangle];
  }

  void Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
              SurfacePoint& point) const override;
  void FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                 trShadingInterface& si) const override;
};

/// Fills the triangles of a mesh with the given triangles of its scene, relative to `origin` (world space).
/// Those whose points aren't finite in single precision are left out.
OV_API void FillTriMesh(TriMesh& mesh, const std::vector<std::int32_t>& sceneTris, const trVector& origin);

}  // namespace ovhost
