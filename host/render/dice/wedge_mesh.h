// Triangles that are cut by their edges: whatever meets at a point or an edge is cut there together.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "core/scene.h"
#include "host/render/parts/packed_normal.h"

namespace ovhost {

/// A point of the surface, whatever faces meet there.
struct Position {
  trVector base;           ///< object space
  trFVector normal;        ///< that it is displaced along, object space
  trVector texture;        ///< that it is displaced by
  std::int32_t material;   ///< that it is displaced by
  trFVector moved;         ///< world space, relative to the origin
  trFVector movedTexture;  ///< relative to the texture origin
  PackedNormal textureNormal;
};

/// A corner of faces that agree on their normal and texture point.
struct Wedge {
  std::uint32_t position;
  trFVector normal;
  trVector texture;
  trFVector movedTexture;  ///< relative to the texture origin
  PackedNormal textureNormal;
};

struct Face {
  std::array<std::uint32_t, 3> wedges;
  std::int32_t root;  ///< number among the roots
};

template <typename V>
bool SameBits(const V& a, const V& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}

/// Faces over points of a scene's surface. One thread at a time.
class WedgeMesh {
 public:
  static constexpr std::uint32_t kNone = ~0u;

  /// Of the scene's triangles with these table indices.
  WedgeMesh(const trScene& scene, const std::vector<std::int32_t>& roots);

  /// Whether texture points are the scene's own; otherwise they are the points, in the world.
  bool IsMapped() const { return isMapped_; }
  /// Of a triangle as it is, object space.
  trFVector FlatNormal(const trTri& tri) const;
  /// Puts a point into the middle of every edge of some faces for which `isLong` holds, given two positions,
  /// whatever faces share it. Returns the wedges in the middle of each face's sides, three a face; kNone for
  /// sides that stay whole. `isLong` is asked from many threads.
  std::vector<std::uint32_t> CutEdges(const std::vector<Face>& of,
                                      const std::function<bool(std::uint32_t, std::uint32_t)>& isLong);
  /// Adds the pieces of a face whose sides have been cut at `mids`.
  void CutFace(const Face& face, const std::uint32_t* mids, std::vector<Face>& out) const;

  std::vector<Position> positions;
  std::vector<Wedge> wedges;
  std::vector<Face> faces;

 private:
  const trScene& scene_;
  const trTransform<double>& toWorld_;
  bool isMapped_ = false;
};

}  // namespace ovhost
