// What surfaces of triangles share, whatever their vertices hold.
#pragma once

#include <array>
#include <vector>

#include "host/render/parts/surface_part.h"
#include "host/render/parts/triangle.h"

namespace ovhost {

inline const trFVector& PointOf(const trFVector& vertex) { return vertex; }

/// Triangles over vertices of a kind, whose points PointOf() tells; each is a triangle of the part's scene,
/// or a piece of one. The last `kSpareVertices` belong to none.
template <typename Vertex, size_t kSpareVertices = 0>
struct TrianglePart : SurfacePart {
  using SurfacePart::SurfacePart;

  std::vector<Vertex> vertices;
  std::vector<std::array<std::uint32_t, 3>> triangles;
  std::vector<std::int32_t> sceneTris;  ///< table index of the scene's triangle, for each

  TracedShape Shape() const final {
    TracedShape shape;
    if (triangles.empty()) return shape;
    shape.vertices = &PointOf(vertices[0]);
    shape.vertexBytes = sizeof(Vertex);
    shape.numVertices = vertices.size() - kSpareVertices;
    shape.triangles = triangles.data();
    shape.numTriangles = triangles.size();
    return shape;
  }
  std::uint64_t Bytes() const override {
    return vertices.size() * sizeof(Vertex) + triangles.size() * sizeof(triangles[0]) +
           sceneTris.size() * sizeof(sceneTris[0]);
  }
  size_t NumPrimitives() const final { return triangles.size(); }
  trVector PointAt(std::uint32_t primitive, double u, double v) const final {
    trVector corners[3];
    for (int k = 0; k < 3; ++k) corners[k] = PointOf(vertices[triangles[primitive][k]]);
    return BlendCorners(corners, u, v);
  }
};

}  // namespace ovhost
