// Adaptive dicing: a restricted quadtree over the base mesh's quads, refined by what an edge measures on
// screen.
//
// Two patches that meet differ by one level at most. Where they differ, the finer one's odd border vertices
// fall on their even neighbours, which the coarser one shares to the bit, so the surface has no cracks.
#include "host/render/dice/dicer.h"

#include <algorithm>
#include <unordered_set>

#include "host/base/parallel.h"
#include "host/render/dice/patch_edges.h"
#include "host/render/dice/patch_tree.h"
#include "host/render/dice/smooth_normals.h"

namespace ovhost {
namespace {

constexpr int kLeavesPerTask = 4;
/// Leaves per root quad that no picture is too small for.
constexpr std::uint64_t kLeavesPerQuad = 16;
/// And those that no root quad can do without: its quarters, and what balancing makes of a neighbour's.
constexpr std::uint64_t kLeastLeavesPerQuad = 6;
/// An edge's key doesn't depend on its direction. Ends are mixed apart first: mirrored points must not
/// cancel.
std::uint64_t EdgeKey(std::uint64_t a, std::uint64_t b) { return MixBits64(a + 1) + MixBits64(b + 1); }

/// Which sides of each patch meet a coarser one: the parent's edge there is some leaf's edge.
std::vector<PatchEdges> FindCoarserNeighbours(const GridMesh& mesh) {
  const auto key = [&](const Patch& p, double u, double v) { return KeyOf(mesh.BasePoint(p.quad, u, v)); };
  std::unordered_set<std::uint64_t> edges;
  edges.reserve(mesh.patches.size() * 4);
  for (const Patch& p : mesh.patches) {
    const double u1 = p.u0 + p.size, v1 = p.v0 + p.size;
    const std::uint64_t a = key(p, p.u0, p.v0), b = key(p, u1, p.v0), c = key(p, u1, v1),
                        d = key(p, p.u0, v1);
    for (const std::uint64_t e : {EdgeKey(a, b), EdgeKey(b, c), EdgeKey(c, d), EdgeKey(d, a)})
      edges.insert(e);
  }
  std::vector<PatchEdges> result(mesh.patches.size());
  ParallelFor(mesh.patches.size(), [&](size_t i) {
    const Patch& p = mesh.patches[i];
    if (p.size >= 1) return;
    // The parent's square, and which sides of it this patch touches.
    const double parent = p.size * 2;
    const double pu = std::floor(p.u0 / parent) * parent, pv = std::floor(p.v0 / parent) * parent;
    const std::uint64_t a = key(p, pu, pv), b = key(p, pu + parent, pv), c = key(p, pu + parent, pv + parent),
                        d = key(p, pu, pv + parent);
    result[i].coarserNeighbour[0] = p.v0 == pv && edges.count(EdgeKey(a, b));
    result[i].coarserNeighbour[1] = p.u0 != pu && edges.count(EdgeKey(b, c));
    result[i].coarserNeighbour[2] = p.v0 != pv && edges.count(EdgeKey(c, d));
    result[i].coarserNeighbour[3] = p.u0 == pu && edges.count(EdgeKey(d, a));
  });
  return result;
}

void DisplacePatches(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                     const std::vector<PatchEdges>& edges) {
  mesh.vertices.resize(mesh.patches.size() * kPatchVertices);
  const size_t tasks = (mesh.patches.size() + kLeavesPerTask - 1) / kLeavesPerTask;
  ParallelFor(tasks, [&](size_t task) {
    if (settings.stop && settings.stop->load(std::memory_order_relaxed)) return;
    DisplacementSampler sampler(*mesh.scene, settings, services);
    const size_t end = std::min(mesh.patches.size(), (task + 1) * kLeavesPerTask);
    for (size_t i = task * kLeavesPerTask; i < end; ++i) {
      Patch& patch = mesh.patches[i];
      GridVertex* vertices = &mesh.vertices[i * kPatchVertices];
      for (int row = 0; row < kPatchStride; ++row)
        for (int column = 0; column < kPatchStride; ++column) {
          trShadingInterface& si =
              PlaceOnGrid(sampler, mesh, patch.quad, patch.u0 + patch.size * column / kPatchSide,
                          patch.v0 + patch.size * row / kPatchSide);
          if (row == 0 && column == 0) patch.textureOrigin = si.Pt();
          GridVertex& vertex = vertices[row * kPatchStride + column];
          vertex.point = trFVector(si.P() - settings.Origin());
          vertex.texture = trFVector(si.Pt() - patch.textureOrigin);
          vertex.textureNormal = PackedNormal(si.Nt());
        }
      ForSnappedVertices(edges[i], [&](int vertex, int onto) { vertices[vertex] = vertices[onto]; });
    }
  });
}

struct LeafLimits {
  std::uint64_t byMemory, byPicture;

  LeafLimits(const GridMesh& mesh, const DiceSettings& settings)
      : byMemory(settings.maxVertices ? settings.maxVertices / kPatchVertices : ~0ull),
        byPicture(settings.pictureVertices ? std::max(settings.pictureVertices / kPatchVertices,
                                                      mesh.quadCorners.size() / 4 * kLeavesPerQuad)
                                           : ~0ull) {}
  std::uint64_t Both() const { return std::min(byMemory, byPicture); }
};

void SetPatches(GridMesh& mesh, const std::vector<PatchNode>& leaves) {
  mesh.patches.reserve(leaves.size());
  for (const PatchNode& leaf : leaves) mesh.patches.push_back({leaf.quad, leaf.u, leaf.v, leaf.size, {}});
}

}  // namespace

VertexDemand DemandOf(const GridMesh& mesh, const DiceSettings& settings) {
  const std::uint64_t byPicture = LeafLimits(mesh, settings).byPicture;
  return {mesh.quadCorners.size() / 4 * kLeastLeavesPerQuad * kPatchVertices,
          byPicture < ~0ull / kPatchVertices ? byPicture * kPatchVertices : ~0ull};
}

bool FindPatches(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                 DiceStatistics& statistics) {
  std::vector<PatchNode> leaves;
  const std::uint64_t maxLeaves = LeafLimits(mesh, settings).Both();
  if (!PatchTree(mesh, settings, services).FindLeaves(maxLeaves, leaves, statistics.displacements))
    return false;
  SetPatches(mesh, leaves);
  return true;
}

bool Dice(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
          DiceStatistics& statistics) {
  if (mesh.patches.empty() && !FindPatches(mesh, settings, services, statistics)) {
    const LeafLimits limits(mesh, settings);
    std::vector<PatchNode> leaves;
    statistics.AddLongest(PatchTree(mesh, settings, services)
                              .FindNeediestLeaves(limits.Both(), leaves, statistics.displacements),
                          limits.byMemory < limits.byPicture);
    SetPatches(mesh, leaves);
  }
  const std::vector<PatchEdges> edges = FindCoarserNeighbours(mesh);
  DisplacePatches(mesh, settings, services, edges);
  SmoothNormals(mesh, edges);
  statistics.patches += mesh.patches.size();
  statistics.vertices += mesh.vertices.size();
  statistics.displacements += mesh.vertices.size();
  return !(settings.stop && settings.stop->load());
}

}  // namespace ovhost
