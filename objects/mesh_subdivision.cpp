// Meshes made finer.
#include "objects/mesh_subdivision.h"

#include <cmath>
#include <string>

#include "objects/mesh_budget.h"

namespace {

constexpr long kTrianglesBetweenReports = 100000;
/// A triangle, and nearly a point, a texture vertex and a normal with it.
constexpr std::uint64_t kBytesPerTriangle =
    sizeof(trTri) + sizeof(trPoint) + sizeof(trTexVert) + sizeof(trNormal);

struct Midpoints {
  std::int32_t point[3], texVert[3], normal[3];
};

/// New entries half way along the edges of a triangle: of its first and second corner, its second and third,
/// its third and first. False where a table is full.
bool AddMidpoints(trScene& scene, const trTri& tri, Midpoints& out) {
  trVector points[3], texVerts[3], normals[3];
  scene.GetPointVecs(tri.point, points, 3);
  const bool isMapped = scene.GetTexVecs(tri.texVert, texVerts, 3) == 3,
             hasNormals = scene.GetNormals(tri.normal, normals, 3) == 3;
  for (int i = 0; i < 3; ++i) {
    const int next = i == 2 ? 0 : i + 1;
    const auto middle = [&](const trVector* v) { return (v[i] + v[next]) * 0.5; };
    out.point[i] = static_cast<std::int32_t>(scene.AddPoint({middle(points)}));
    out.texVert[i] = isMapped ? static_cast<std::int32_t>(scene.AddTexVert({middle(texVerts)})) : 0;
    out.normal[i] = hasNormals ? static_cast<std::int32_t>(scene.AddNormal({middle(normals)})) : 0;
    if (!out.point[i] || (isMapped && !out.texVert[i]) || (hasNormals && !out.normal[i])) return false;
  }
  return true;
}

/// The original keeps its first corner. Each part runs round as the original does.
bool SplitInFour(trScene& scene, long index) {
  const trTri whole = *scene.GetPTri(index);
  Midpoints middle;
  if (!AddMidpoints(scene, whole, middle)) return false;
  const auto part = [&](const std::int32_t(trTri::*corners)[3], const std::int32_t* m, int which,
                        std::int32_t* out) {
    const std::int32_t* const c = whole.*corners;
    const std::int32_t parts[4][3] = {
        {c[0], m[0], m[2]}, {m[0], c[1], m[1]}, {m[2], m[1], c[2]}, {m[0], m[1], m[2]}};
    for (int i = 0; i < 3; ++i) out[i] = parts[which][i];
  };
  for (int which = 0; which < 4; ++which) {
    trTri tri = whole;
    part(&trTri::point, middle.point, which, tri.point);
    part(&trTri::texVert, middle.texVert, which, tri.texVert);
    part(&trTri::normal, middle.normal, which, tri.normal);
    if (which == 0)
      *scene.GetPTri(index) = tri;
    else if (!scene.AddTri(tri))
      return false;
  }
  return true;
}

}  // namespace

long SubdivideMesh(trScene& scene, long levels, trBase& node) {
  const long start = scene.NumTris();
  if (levels < 1 || !start) return 1;
  if (!FitsMeshBudget(node, static_cast<double>(start) * std::pow(4.0, static_cast<double>(levels)),
                      "triangles of subdivision", kBytesPerTriangle, 1))
    return 0;

  // Each level splits what stands at its start: 1 + 4 + 16 + ... times the first triangles in all.
  const double all = static_cast<double>(start) * (std::pow(4.0, static_cast<double>(levels)) - 1) / 3;
  unsigned long progress = 0;
  long handled = 0;
  bool goesOn = true;
  for (long level = 1; level <= levels && goesOn; ++level) {
    const trString text =
        node.Name() + ": Subdividing mesh at level " + std::to_string(level) + "/" + std::to_string(levels);
    const long count = scene.NumTris();
    for (long i = 1; i <= count && goesOn; ++i) {
      if (!SplitInFour(scene, i)) return 0;
      if (++handled % kTrianglesBetweenReports == 0)
        goesOn = node.ReportProgress(progress, text, static_cast<float>(static_cast<double>(handled) / all),
                                     -1.0f) != 0;
    }
  }
  node.ReportProgress(progress, trString(), 1.0f, -1.0f);
  return 1;
}
