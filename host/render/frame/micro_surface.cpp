#include "host/render/frame/micro_surface.h"

#include <new>

#include "host/base/point_table.h"

namespace ovhost {
namespace {

constexpr std::size_t kMostPoints = 0x7ffffff0;

class Collector {
 public:
  explicit Collector(const trVector& origin) { surface_.origin = origin; }

  void Add(const GridMesh& grid) {
    for (std::uint32_t patch = 0; patch < grid.patches.size(); ++patch) {
      const GridVertex* const vertices = grid.PatchVertices(patch);
      std::uint32_t numbers[kPatchVertices];
      for (int i = 0; i < kPatchVertices; ++i) numbers[i] = Enter(vertices[i].point, vertices[i].normal);
      for (int row = 0; row < kPatchSide; ++row)
        for (int column = 0; column < kPatchSide; ++column) {
          const std::uint32_t* const at = numbers + row * kPatchStride + column;
          AddTriangle(at[0], at[1], at[kPatchStride + 1]);
          AddTriangle(at[0], at[kPatchStride + 1], at[kPatchStride]);
        }
    }
  }

  void Add(const MicroMesh& mesh) {
    const trVector moved = mesh.origin - surface_.origin;
    std::vector<std::uint32_t> numbers;
    numbers.reserve(mesh.vertices.size());
    for (const MicroVertex& vertex : mesh.vertices)
      numbers.push_back(Enter(trFVector(trVector(vertex.point) + moved), vertex.normal));
    for (const auto& corners : mesh.triangles)
      AddTriangle(numbers[corners[0]], numbers[corners[1]], numbers[corners[2]]);
  }

  trMicroSurface Take() {
    surface_.points = table_.TakePoints();
    return std::move(surface_);
  }

 private:
  std::uint32_t Enter(const trFVector& point, const PackedNormal& normal) {
    if (table_.Points().size() >= kMostPoints) throw std::bad_alloc();
    const auto number = static_cast<std::uint32_t>(table_.Enter(point));
    if (number == surface_.normals.size()) surface_.normals.push_back(trFVector(normal.Unpack()));
    return number;
  }
  /// With the front where the normals point.
  void AddTriangle(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    if (a == b || b == c || c == a) return;
    const auto& p = table_.Points();
    const auto& n = surface_.normals;
    const trVector front = Cross(trVector(p[c]) - trVector(p[a]), trVector(p[b]) - trVector(p[a]));
    if (Dot(front, trVector(n[a]) + trVector(n[b]) + trVector(n[c])) < 0) std::swap(b, c);
    surface_.triangles.push_back({a, b, c});
  }

  trMicroSurface surface_;
  PointTable table_;
};

}  // namespace

trMicroSurface CollectMicroSurface(const Assembly& parts) {
  Collector collector(parts.origin);
  for (const auto& grid : parts.grids)
    if (grid->rayKinds & kCameraRays) collector.Add(*grid);
  for (const auto& mesh : parts.micros)
    if (mesh->rayKinds & kCameraRays) collector.Add(*mesh);
  return collector.Take();
}

}  // namespace ovhost
