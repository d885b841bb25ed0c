// Smoothed normals of diced surfaces, across the patches' borders.
#include "host/render/dice/smooth_normals.h"

#include <array>

#include "host/base/parallel.h"

namespace ovhost {
namespace {

/// Border vertices are shared out by their keys' topmost bits, so that threads need not wait for one another.
constexpr int kShardBits = 4;
constexpr size_t kShards = size_t(1) << kShardBits;

std::vector<int> BorderVertices() {
  std::vector<int> border;
  for (int v = 0; v < kPatchVertices; ++v) {
    const int row = v / kPatchStride, column = v % kPatchStride;
    if (row == 0 || row == kPatchSide || column == 0 || column == kPatchSide) border.push_back(v);
  }
  return border;
}

/// The border vertices of all patches: what to know each by, and the sum of the normals of its patch's faces
/// round it. Apart, since the keys are gone through for every shard.
struct BorderSums {
  explicit BorderSums(size_t count) : keys(count), sums(count) {}
  std::vector<std::uint64_t> keys;
  std::vector<trFVector> sums;
};

/// Sums per key. Open addressing; the keys are mixed already.
class SumsByKey {
 public:
  explicit SumsByKey(size_t count) : slots_(std::bit_ceil(2 * count + 1)) {}

  trVector& operator[](std::uint64_t key) {
    size_t i = key & (slots_.size() - 1);
    while (slots_[i].isTaken && slots_[i].key != key) i = (i + 1) & (slots_.size() - 1);
    slots_[i].isTaken = true;
    slots_[i].key = key;
    return slots_[i].sum;
  }

 private:
  struct Slot {
    std::uint64_t key = 0;
    bool isTaken = false;
    trVector sum;
  };
  std::vector<Slot> slots_;
};

/// Sets a patch's normals from its own faces, and leaves its border's sums.
void SmoothWithin(const GridMesh& mesh, const Patch& patch, const PatchEdges& edges, GridVertex* vertices,
                  const std::vector<int>& border, BorderSums& borderSums, size_t firstOfPatch) {
  std::array<trVector, kPatchVertices> sums{};
  for (int row = 0; row < kPatchSide; ++row)
    for (int column = 0; column < kPatchSide; ++column) {
      const int a = row * kPatchStride + column, b = a + 1, c = b + kPatchStride, d = a + kPatchStride;
      const trVector diagonal1 = trVector(vertices[c].point) - trVector(vertices[a].point);
      const trVector diagonal2 = trVector(vertices[d].point) - trVector(vertices[b].point);
      const trVector normal = Cross(diagonal1, diagonal2);
      for (const int v : {a, b, c, d}) sums[v] += normal;
    }
  ForSnappedVertices(edges, [&](int vertex, int onto) {
    sums[onto] += sums[vertex];
    sums[vertex] = trVector();
  });
  for (int row = 1; row < kPatchSide; ++row)
    for (int column = 1; column < kPatchSide; ++column) {
      const int v = row * kPatchStride + column;
      vertices[v].normal = PackedNormal(Normalised(sums[v]));
    }
  for (size_t k = 0; k < border.size(); ++k) {
    const double column = border[k] % kPatchStride, row = border[k] / kPatchStride;
    const trVector base = mesh.BasePoint(patch.quad, patch.u0 + patch.size * column / kPatchSide,
                                         patch.v0 + patch.size * row / kPatchSide);
    borderSums.keys[firstOfPatch + k] = KeyOf(base);
    borderSums.sums[firstOfPatch + k] = trFVector(sums[border[k]]);
  }
}

}  // namespace

void SmoothNormals(GridMesh& mesh, const std::vector<PatchEdges>& edges) {
  const std::vector<int> border = BorderVertices();
  BorderSums borderSums(mesh.patches.size() * border.size());
  ParallelFor(mesh.patches.size(), [&](size_t i) {
    SmoothWithin(mesh, mesh.patches[i], edges[i], &mesh.vertices[i * kPatchVertices], border, borderSums,
                 i * border.size());
  });

  // Every shard adds in the order of the vertices, so the sums don't depend on the threads.
  ParallelFor(kShards, [&](size_t shard) {
    std::vector<std::uint32_t> members;
    members.reserve(borderSums.keys.size() / kShards * 5 / 4);
    for (size_t i = 0; i < borderSums.keys.size(); ++i)
      if (borderSums.keys[i] >> (64 - kShardBits) == shard) members.push_back(static_cast<std::uint32_t>(i));
    SumsByKey sums(members.size());
    for (const std::uint32_t i : members) sums[borderSums.keys[i]] += trVector(borderSums.sums[i]);
    for (const std::uint32_t i : members)
      mesh.vertices[i / border.size() * kPatchVertices + border[i % border.size()]].normal =
          PackedNormal(Normalised(sums[borderSums.keys[i]]));
  });

  ParallelFor(mesh.patches.size(), [&](size_t i) {
    GridVertex* vertices = &mesh.vertices[i * kPatchVertices];
    ForSnappedVertices(edges[i],
                       [&](int vertex, int onto) { vertices[vertex].normal = vertices[onto].normal; });
  });
}

}  // namespace ovhost
