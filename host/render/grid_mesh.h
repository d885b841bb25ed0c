// Diced surfaces: square grids of displaced micropolygon vertices, ready for Embree.
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <vector>

#include "host/render/surface_part.h"

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

/// What dicing needs to know of the view.
struct DiceSettings {
  trView view;
  double edgePixels = 1.4;        ///< wanted length of a micropolygon's edge on screen
  std::uint64_t maxVertices = 0;  ///< that there is memory for; 0: no limit
  /// That the picture's size is worth; 0: no limit. Every surface may have some, however small the picture.
  std::uint64_t pictureVertices = 0;
  double frame = 1;
  std::uint64_t seed = 0;
  const std::atomic<bool>* stop = nullptr;
  /// For a surface that is copied, which no view of its own looks at: how long edges are everywhere, metres,
  /// and what vertices are relative to instead of the eye. 0 goes by the view.
  double copiedEdge = 0;
  trVector origin;

  const trVector& Origin() const { return copiedEdge > 0 ? origin : view.eye; }
};

struct DiceStatistics {
  std::uint64_t vertices = 0, displacements = 0, patches = 0;
  double longestEdge = 1;  ///< in wanted lengths, where a limit of vertices left edges longer than that
};

/// Cuts the scene's surface into patches for the view, displaces every vertex, and smooths the normals. Where
/// that would take more vertices than allowed, what looks longest is cut first, until they are used up. False
/// when it was stopped. Uses all workers of the caller's TBB arena; the result doesn't depend on how many
/// there are. Throws std::bad_alloc where even the coarsest surface has more vertices than allowed.
OV_API bool Dice(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                 DiceStatistics& statistics);

/// Radius of the filter footprint at a distance from the eye, metres.
inline double FootprintAt(const trView& view, double edgePixels, double distance) {
  return std::fmax(distance, view.nearClip) * view.PixelAngularSize() * edgePixels;
}

}  // namespace ovhost
