// Rays from the eye past the patches' outlines.
#include "host/render/dice/hidden_patches.h"

#include <algorithm>

#include "host/base/parallel.h"
#include "host/render/parts/tri_mesh.h"
#include "host/render/trace/accel.h"

namespace ovhost {
namespace {

/// How far about a patch nothing may be seen, and how far in front of it what hides it must stand, in its
/// longest edges.
constexpr double kAbout = 0.5, kInFront = 2;

double LongestEdge(const PatchOutline& patch) {
  double edge = 0;
  for (int i = 0; i < 4; ++i) edge = std::fmax(edge, (patch[(i + 1) % 4] - patch[i]).Length());
  return edge;
}

/// Four triangles a patch, relative to the eye.
TriMesh OutlineTriangles(const std::vector<PatchOutline>& patches, const trVector& eye) {
  TriMesh mesh;
  mesh.vertices.reserve(patches.size() * 5 + 1);
  mesh.triangles.reserve(patches.size() * 4);
  for (const PatchOutline& patch : patches) {
    const auto first = static_cast<std::uint32_t>(mesh.vertices.size());
    for (const trVector& point : patch) mesh.vertices.emplace_back(point - eye);
    for (std::uint32_t i = 0; i < 4; ++i)
      mesh.triangles.push_back({first + i, first + (i + 1) % 4, first + 4});
  }
  mesh.vertices.emplace_back();
  return mesh;
}

bool IsHidden(const PatchOutline& patch, const trView& view, const Accel& rays) {
  const double edge = LongestEdge(patch), about = edge * kAbout;
  const auto isSeen = [&](const trVector& point) {
    const trVector path = point - view.eye;
    const double length = path.Length(), end = length - edge * kInFront;
    return end <= 0 || !rays.Occluded({}, path * (1 / length), 0, end);
  };
  const trVector sides[] = {view.up * about, view.right * about, view.right * -about};
  for (const trVector& point : patch)
    for (const trVector& side : sides)
      if (isSeen(point + side)) return false;
  return true;
}

}  // namespace

std::vector<char> FindHiddenPatches(const std::vector<PatchOutline>& patches, const trView& view,
                                    const std::atomic<bool>* stop) {
  std::vector<char> isHidden(patches.size());
  const TriMesh mesh = OutlineTriangles(patches, view.eye);
  Accel rays(stop);
  rays.Add(mesh);
  if (rays.Build())
    ParallelFor(patches.size(), [&](size_t i) { isHidden[i] = IsHidden(patches[i], view, rays); });
  return isHidden;
}

}  // namespace ovhost
