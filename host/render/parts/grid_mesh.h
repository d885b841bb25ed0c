// Diced surfaces: square grids of displaced micropolygon vertices, ready for Embree.
#pragma once

#include <vector>

#include "host/render/parts/packed_normal.h"
#include "host/render/parts/surface_part.h"

namespace ovhost {

/// Quads along the side of a patch; a patch has (kPatchSide + 1)^2 vertices.
constexpr int kPatchSide = 16;
constexpr int kPatchStride = kPatchSide + 1;
constexpr int kPatchVertices = kPatchStride * kPatchStride;

/// A displaced vertex, 32 bytes. `point` is relative to the camera's eye, `texture` to the patch's texture
/// origin, so that single precision serves at planet scale.
struct GridVertex {
  trFVector point;
  PackedNormal normal;  ///< of the displaced surface, smoothed over the faces around
  trFVector texture;
  PackedNormal textureNormal;  ///< Nt as the displacement left it
};
static_assert(sizeof(GridVertex) == 32);

/// A leaf of a surface's quadtree.
struct Patch {
  std::uint32_t quad = 0;           ///< root quad of the base mesh
  double u0 = 0, v0 = 0, size = 1;  ///< square of the root quad's unit square; dyadic
  trVector textureOrigin;
};

/// One object's diced surface.
struct OV_API GridMesh final : SurfacePart {
  using SurfacePart::SurfacePart;

  const trMaterial* material = nullptr;
  std::vector<trVector> quadCorners;  ///< four a root quad, object space: (0,0), (1,0), (1,1), (0,1)
  std::vector<Patch> patches;
  std::vector<GridVertex> vertices;  ///< kPatchVertices a patch, rows of rising v

  /// Point of the base mesh, object space: the bilinear blend of the quad's corners, which on an edge depends
  /// on that edge's ends alone, to the bit and from either side.
  trVector BasePoint(std::uint32_t quad, double u, double v) const;
  const GridVertex* PatchVertices(std::uint32_t patch) const {
    return &vertices[static_cast<size_t>(patch) * kPatchVertices];
  }

  TracedShape Shape() const override;
  std::uint64_t Bytes() const override;
  size_t NumPrimitives() const override { return patches.size(); }
  void Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
              SurfacePoint& point) const override;
  void FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                 trShadingInterface& si) const override;
  double Curvature(const SurfaceHit& hit) const override;
  void MapToPrimitive(double&, double&) const override {}
  trVector PointAt(std::uint32_t primitive, double u, double v) const override;
  bool PieceForCamera(const SurfaceHit& hit, double pixelAngle, SurfacePiece& piece) const override;
  double PieceForBounce(const SurfaceHit& hit, double footprint, SurfacePiece& piece) const override;
  double PieceForCone(const SurfaceHit& hit, const trVector& direction, double footprint,
                      SurfacePiece& piece) const override;
  int VerticesNear(const SurfaceHit& hit, double spacing, bool fromEye, NearVertex* found) const override;
};

}  // namespace ovhost
