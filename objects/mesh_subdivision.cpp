// Meshes made finer.
#include "objects/mesh_subdivision.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "objects/mesh_budget.h"

namespace {

constexpr long kTrianglesBetweenReports = 100000;
/// A triangle, and nearly a point, a texture vertex and a normal with it.
constexpr std::uint64_t kBytesPerTriangle =
    sizeof(trTri) + sizeof(trPoint) + sizeof(trTexVert) + sizeof(trNormal);

/// The tables of a mesh, counted from 1 as its indices are, and their next free entries.
struct MeshTables {
  trPoint* points;
  trTexVert* texVerts;
  trNormal* normals;
  trTri* tris;
  std::int32_t nextPoint, nextTexVert, nextNormal, nextTri;

  /// With room for so many more splits.
  MeshTables(trScene& scene, long splits)
      : nextPoint(static_cast<std::int32_t>(scene.NumPts() + 1)),
        nextTexVert(static_cast<std::int32_t>(scene.NumTexVerts() + 1)),
        nextNormal(static_cast<std::int32_t>(scene.NumNormals() + 1)),
        nextTri(static_cast<std::int32_t>(scene.NumTris() + 1)) {
    scene.Grow(3 * splits, 3 * splits, 3 * splits, 3 * splits);
    points = scene.GetPPoint(1) - 1;
    texVerts = scene.GetPTexVert(1) - 1;
    normals = scene.GetPNormal(1) - 1;
    tris = scene.GetPTri(1) - 1;
  }

  void SplitInFour(std::int32_t index) {
    trTri parts[4];
    std::fill_n(parts, 4, tris[index]);
    Split(parts, points, &trPoint::position, &trTri::point, nextPoint);
    Split(parts, texVerts, &trTexVert::uvw, &trTri::texVert, nextTexVert);
    Split(parts, normals, &trNormal::direction, &trTri::normal, nextNormal);
    tris[index] = parts[0];
    for (int i = 1; i < 4; ++i) tris[nextTri++] = parts[i];
  }

 private:
  /// Adds the middles of the edges from the first corner to the second, to the third and back, and gives the
  /// parts their corners. Each runs round as the whole does; the first keeps the first corner.
  template <typename T>
  static void Split(trTri* parts, T* table, trVector T::*member, std::int32_t (trTri::*corners)[3],
                    std::int32_t& next) {
    std::int32_t c[3], m[3];
    std::copy_n(parts[0].*corners, 3, c);
    for (int i = 0; i < 3; ++i) {
      m[i] = next++;
      table[m[i]].*member = (table[c[i]].*member + table[c[i == 2 ? 0 : i + 1]].*member) * 0.5;
    }
    const std::int32_t of[4][3] = {
        {c[0], m[0], m[2]}, {m[0], c[1], m[1]}, {m[2], m[1], c[2]}, {m[0], m[1], m[2]}};
    for (int i = 0; i < 4; ++i) std::copy_n(of[i], 3, parts[i].*corners);
  }
};

}  // namespace

long SubdivideMesh(trScene& scene, long levels, trBase& node) {
  const long start = scene.NumTris();
  if (levels < 1 || !start) return 1;
  const double triangles = static_cast<double>(start) * std::pow(4.0, static_cast<double>(levels));
  if (!FitsMeshBudget(node, triangles, "triangles of subdivision", kBytesPerTriangle, 1)) return 0;
  const auto added = static_cast<long>(triangles) - start;
  scene.Reserve(added, added, added, added);

  // Each level splits what stands at its start: 1 + 4 + 16 + ... times the first triangles in all.
  const double all = (triangles - static_cast<double>(start)) / 3;
  unsigned long progress = 0;
  long handled = 0;
  bool goesOn = true;
  for (long level = 1; level <= levels && goesOn; ++level) {
    const trString text =
        node.Name() + ": Subdividing mesh at level " + std::to_string(level) + "/" + std::to_string(levels);
    const long count = scene.NumTris();
    for (long first = 1; first <= count && goesOn;) {
      const long splits =
          std::min(count - first + 1, kTrianglesBetweenReports - handled % kTrianglesBetweenReports);
      MeshTables tables(scene, splits);
      for (long i = first; i < first + splits; ++i) tables.SplitInFour(static_cast<std::int32_t>(i));
      first += splits;
      handled += splits;
      if (handled % kTrianglesBetweenReports == 0)
        goesOn = node.ReportProgress(progress, text, static_cast<float>(static_cast<double>(handled) / all),
                                     -1.0f) != 0;
    }
  }
  node.ReportProgress(progress, trString(), 1.0f, -1.0f);
  return 1;
}
