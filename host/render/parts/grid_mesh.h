// Diced surfaces: square grids of displaced micropolygon vertices, ready for Embree.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "host/render/parts/surface_part.h"

namespace ovhost {

/// Quads along the side of a patch; a patch has (kPatchSide + 1)^2 vertices.
constexpr int kPatchSide = 16;
constexpr int kPatchStride = kPatchSide + 1;
constexpr int kPatchVertices = kPatchStride * kPatchStride;

/// A unit vector in 32 bits: octahedral, 16 bits a side (Cigolle et al. 2014); error below 0.004 degrees.
struct OV_API PackedNormal {
  std::uint32_t bits = 0;
  PackedNormal() = default;
  explicit PackedNormal(const trVector& n);
  trVector Unpack() const {
    double u = (bits & 0xffffu) * (2.0 / 65535.0) - 1.0, v = (bits >> 16) * (2.0 / 65535.0) - 1.0;
    const double y = 1.0 - std::fabs(u) - std::fabs(v);
    // Folded over where y is negative.
    const double fold = std::fmax(-y, 0.0);
    u -= std::copysign(fold, u);
    v -= std::copysign(fold, v);
    const double scale = 1.0 / std::sqrt(u * u + y * y + v * v);
    return {u * scale, y * scale, v * scale};
  }
};

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
struct OV_API GridMesh : SurfacePart {
  GridMesh() : SurfacePart(Kind::kGrid) {}

  const trMaterial* material = nullptr;
  std::vector<trVector> quadCorners;  ///< four a root quad, object space: (0,0), (1,0), (1,1), (0,1)
  std::vector<Patch> patches;
  std::vector<GridVertex> vertices;  ///< kPatchVertices a patch, rows of rising v

  /// Point of the base mesh, object space: the bilinear blend of the quad's corners, which on an edge depends
  /// on that edge's ends alone, to the bit and from either side.
  trVector BasePoint(std::uint32_t quad, double u, double v) const;
};

}  // namespace ovhost
