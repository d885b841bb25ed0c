// From a scene's tables to triangles that can be traced.
#include "host/render/parts/tri_mesh.h"

#include <algorithm>

namespace ovhost {
namespace {

/// The ray tracer leaves out what is farther away than this.
bool IsTraceable(const trFVector& p) {
  constexpr float kFarthest = 1e18f;
  return std::fabs(p.x) < kFarthest && std::fabs(p.y) < kFarthest && std::fabs(p.z) < kFarthest;
}

}  // namespace

void FillTriMesh(TriMesh& mesh, const std::vector<std::int32_t>& sceneTris, const trVector& origin) {
  const trScene& scene = *mesh.scene;
  const trTransform<double>& toWorld = scene.GetTransform();
  const auto numPoints = static_cast<std::uint32_t>(scene.NumPts());
  mesh.vertices.resize(size_t(numPoints) + 1);
  for (std::uint32_t i = 0; i < numPoints; ++i)
    mesh.vertices[i] = trFVector(toWorld.Point(scene.GetPPoint(i + 1)->position) - origin);

  mesh.triangles.reserve(sceneTris.size());
  bool isWhole = true;
  for (const std::int32_t index : sceneTris) {
    const std::int32_t* corners = scene.GetPTri(index)->point;
    std::array<std::uint32_t, 3> triangle;
    for (int k = 0; k < 3; ++k) triangle[k] = static_cast<std::uint32_t>(corners[k] - 1);
    if (!std::all_of(triangle.begin(), triangle.end(),
                     [&](std::uint32_t k) { return k < numPoints && IsTraceable(mesh.vertices[k]); }))
      continue;
    mesh.triangles.push_back(triangle);
    mesh.sceneTris.push_back(index);
    isWhole &= index == static_cast<std::int32_t>(mesh.triangles.size());
  }
  if (isWhole) mesh.sceneTris = {};
}

}  // namespace ovhost
