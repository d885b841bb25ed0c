// Adaptive dicing: a restricted quadtree over the base mesh's quads, refined by what an edge measures on
// screen.
//
// Two patches that meet differ by one level at most. Where they differ, the finer one's odd border vertices
// fall on their even neighbours, which the coarser one shares to the bit, so the surface has no cracks.
#include "host/render/dice/dicer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <tuple>
#include <unordered_set>

#include "host/base/parallel.h"
#include "host/render/dice/hidden_patches.h"
#include "host/render/dice/patch_edges.h"
#include "host/render/dice/smooth_normals.h"

namespace ovhost {
namespace {

constexpr int kMaxLevel = 40;
/// Until patches are small against the planet their corners say little of what lies between.
constexpr int kLeastLevel = 1;
constexpr double kLargestSize = 1e300;
constexpr int kLeavesPerTask = 4;
/// Leaves per root quad that no picture is too small for.
constexpr std::uint64_t kLeavesPerQuad = 16;
/// Balancing splits some leaves more: so much of a limit is left to it, and again where that was too little.
constexpr double kLeftToBalancing = 0.85;
constexpr int kMaxBalancings = 40;
/// Filter footprint of displacement, as a share of a micropolygon's longest edge. Fractals fade their last
/// octaves out well before the footprint, and edges are shorter than the longest.
constexpr double kFootprint = 0.5;

/// What lies outside the view only throws shadows and light into it: as many times coarser than what is seen,
/// and never finer than the second figure, radians a pixel, however long the lens.
constexpr double kCoarserOutOfView = 12;
constexpr double kFinestOutOfView = 0.003;
/// What the surface hides from the eye shows in mirrors at most: as many levels coarser.
constexpr int kCoarserHidden = 2;

/// An edge's key doesn't depend on its direction. Ends are mixed apart first: mirrored points must not
/// cancel.
std::uint64_t EdgeKey(std::uint64_t a, std::uint64_t b) { return MixBits64(a + 1) + MixBits64(b + 1); }

struct Node {
  std::uint32_t quad;
  double u, v, size;
  int level;
  PatchOutline displaced;  ///< corners (0,0) (1,0) (1,1) (0,1), centre
};

/// A thread's shading state for displacing.
struct Displacer {
  Displacer(const GridMesh& mesh, const DiceSettings& settings, trRenderServices& services)
      : mesh_(mesh), settings_(settings), state_(services, si_) {
    si_.SetFrame(static_cast<float>(settings.frame));
    si_.SetMainView(&settings.view);
    si_.SetThread(ThreadSlot());
    si_.Eye() = si_.RootEye() = settings.view.eye;
    si_.Object() = {&mesh.scene->GetTransformForShaders(), mesh.scene};
    si_.SetWants(0);
  }

  /// Leaves the displaced sample in the state.
  trShadingInterface& Evaluate(std::uint32_t quad, double u, double v) {
    const trVector base = mesh_.BasePoint(quad, u, v);
    const trVector world = mesh_.scene->GetTransform().Point(base);
    si_.SetSample(world, Normalised(world - mesh_.scene->GetTransform().forward.Translation()));
    si_.Random() = {KeyOf(base) ^ settings_.seed};
    // The footprint depends on the undisplaced point alone, so every patch that shares a vertex gives it the
    // same one.
    si_.SmoothSize() = FootprintOf(world);
    if (mesh_.material->GeometryPlace(state_)) {
      si_.SmoothSize() = FootprintOf(si_.P());
      mesh_.material->SurfaceDisplace(state_);
    }
    if (!std::isfinite(si_.P().LengthSquared())) si_.P() = world;
    return si_;
  }

 private:
  double FootprintOf(const trVector& point) const {
    if (settings_.copiedEdge > 0) return kFootprint * settings_.copiedEdge;
    return kFootprint *
           FootprintAt(settings_.view, settings_.edgePixels, (point - settings_.view.eye).Length());
  }

  const GridMesh& mesh_;
  const DiceSettings& settings_;
  trShadingInterface si_;
  trRenderState state_;
};

/// A leaf with the length of its micropolygons' edges, in wanted lengths.
struct SizedNode {
  Node node;
  double size;
};

/// Builds the quadtree.
class Refiner {
 public:
  Refiner(const GridMesh& mesh, const DiceSettings& settings, trRenderServices& services)
      : mesh_(mesh), settings_(settings), services_(services) {
    frustum_ = FrustumPlanes(settings.view);
  }

  /// All that are needed. False where there would be more than `maxLeaves`.
  bool FindLeaves(std::uint64_t maxLeaves, std::vector<Node>& leaves, std::uint64_t& displacements) const {
    leaves.clear();
    std::vector<Node> front = Roots(displacements);
    while (!front.empty() && !Stopped()) {
      std::vector<Node> next;
      for (const Node& node : front) (EdgeSize(node) > 1 ? next : leaves).push_back(node);
      if (leaves.size() + next.size() * 4 > maxLeaves) return false;
      front = Split(next, displacements);
    }
    for (int i = 0; i < kCoarserHidden && settings_.copiedEdge == 0 && !Stopped(); ++i) JoinHidden(leaves);
    Balance(leaves, displacements);
    return leaves.size() <= maxLeaves;
  }

  /// As many as are allowed, split in order of need. The longest edge that is left, in wanted lengths.
  double FindNeediestLeaves(std::uint64_t maxLeaves, std::vector<Node>& leaves,
                            std::uint64_t& displacements) const {
    double share = kLeftToBalancing;
    for (int i = 0; i < kMaxBalancings && !Stopped(); ++i, share *= kLeftToBalancing) {
      const double longest = SplitNeediest(static_cast<std::uint64_t>(static_cast<double>(maxLeaves) * share),
                                           leaves, displacements);
      Balance(leaves, displacements);
      if (leaves.size() <= maxLeaves) return longest;
    }
    if (Stopped()) return 1;
    throw std::bad_alloc();
  }

 private:
  std::vector<Node> Roots(std::uint64_t& displacements) const {
    std::vector<Node> roots;
    for (std::uint32_t quad = 0; quad < mesh_.quadCorners.size() / 4; ++quad) {
      roots.push_back({quad, 0, 0, 1, 0, {}});
      EvaluateNode(roots.back());
      displacements += 5;
    }
    return roots;
  }

  /// In rounds: all leaves above half the largest size are split at once, or the largest of them once there
  /// is no room for all.
  double SplitNeediest(std::uint64_t maxLeaves, std::vector<Node>& leaves,
                       std::uint64_t& displacements) const {
    std::vector<SizedNode> sized = Sized(Roots(displacements));
    double largest = 0;
    for (;;) {
      largest = 0;
      for (const SizedNode& leaf : sized) largest = std::fmax(largest, leaf.size);
      const std::uint64_t room = maxLeaves > sized.size() ? (maxLeaves - sized.size()) / 3 : 0;
      if (largest <= 1 || room == 0 || Stopped()) break;
      const double above = std::fmax(1, largest / 2);
      const auto middle = std::stable_partition(sized.begin(), sized.end(),
                                                [&](const SizedNode& leaf) { return !(leaf.size > above); });
      std::stable_sort(middle, sized.end(),
                       [](const SizedNode& a, const SizedNode& b) { return a.size < b.size; });
      const size_t count = std::min<std::uint64_t>(sized.end() - middle, room);
      std::vector<Node> split;
      for (auto leaf = sized.end() - count; leaf != sized.end(); ++leaf) split.push_back(leaf->node);
      sized.resize(sized.size() - count);
      const std::vector<SizedNode> children = Sized(Split(split, displacements));
      sized.insert(sized.end(), children.begin(), children.end());
    }
    leaves.clear();
    for (const SizedNode& leaf : sized) {
      if (leaf.node.level < kLeastLevel) throw std::bad_alloc();
      leaves.push_back(leaf.node);
    }
    return std::fmax(largest, 1);
  }

  std::vector<SizedNode> Sized(const std::vector<Node>& nodes) const {
    std::vector<SizedNode> sized;
    sized.reserve(nodes.size());
    for (const Node& node : nodes) sized.push_back({node, std::fmin(EdgeSize(node), kLargestSize)});
    return sized;
  }

  bool Stopped() const { return settings_.stop && settings_.stop->load(std::memory_order_relaxed); }

  /// Inward normals of the view's four sides, unit.
  static std::array<trVector, 4> FrustumPlanes(const trView& view) {
    return {Normalised(view.forward * view.tanHalfHorizontal + view.right),
            Normalised(view.forward * view.tanHalfHorizontal - view.right),
            Normalised(view.forward * view.tanHalfVertical + view.up),
            Normalised(view.forward * view.tanHalfVertical - view.up)};
  }

  void EvaluateNode(Node& node) const {
    Displacer displacer(mesh_, settings_, services_);
    static constexpr double kU[] = {0, 1, 1, 0, 0.5}, kV[] = {0, 0, 1, 1, 0.5};
    for (int i = 0; i < 5; ++i)
      node.displaced[i] =
          displacer.Evaluate(node.quad, node.u + node.size * kU[i], node.v + node.size * kV[i]).P();
  }

  std::vector<Node> Split(const std::vector<Node>& nodes, std::uint64_t& displacements) const {
    std::vector<Node> children(nodes.size() * 4);
    ParallelFor(nodes.size(), [&](size_t i) { SplitOne(nodes[i], &children[4 * i]); });
    displacements += nodes.size() * 8;
    return children;
  }

  void SplitOne(const Node& node, Node* children) const {
    Displacer displacer(mesh_, settings_, services_);
    const double half = node.size / 2;
    const auto at = [&](double u, double v) {
      return displacer.Evaluate(node.quad, node.u + u * half, node.v + v * half).P();
    };
    const trVector bottom = at(1, 0), right = at(2, 1), top = at(1, 2), left = at(0, 1);
    const auto& d = node.displaced;
    children[0] = {node.quad, node.u, node.v, half, node.level + 1, {d[0], bottom, d[4], left, at(0.5, 0.5)}};
    children[1] = {node.quad, node.u + half,  node.v,
                   half,      node.level + 1, {bottom, d[1], right, d[4], at(1.5, 0.5)}};
    children[2] = {node.quad, node.u + half,  node.v + half,
                   half,      node.level + 1, {d[4], right, d[2], top, at(1.5, 1.5)}};
    children[3] = {node.quad, node.u,         node.v + half,
                   half,      node.level + 1, {left, d[4], top, d[3], at(0.5, 1.5)}};
  }

  /// How long the edges of a leaf's micropolygons look, in wanted lengths: it is split where that is over 1.
  double EdgeSize(const Node& node) const {
    if (node.level >= kMaxLevel) return 0;
    const auto& d = node.displaced;
    double edge = 0;
    for (int i = 0; i < 4; ++i) edge = std::fmax(edge, (d[(i + 1) % 4] - d[i]).Length());
    if (node.level < kLeastLevel) return std::numeric_limits<double>::infinity();
    if (settings_.copiedEdge > 0) return edge / kPatchSide / settings_.copiedEdge;

    const trVector& eye = settings_.view.eye;
    double distance = (d[4] - eye).Length();
    for (int i = 0; i < 4; ++i) distance = std::fmin(distance, (d[i] - eye).Length());
    const double radius = edge * 0.75;
    const double nearest = std::fmax(distance - radius * 0.5, settings_.view.nearClip + 0.25 * radius);
    const double pixelAngle = settings_.view.PixelAngularSize();
    double pixels = edge / kPatchSide / (nearest * pixelAngle);

    // Seen along the surface an edge is foreshortened; relief makes up for some of that.
    const trVector normal = Normalised(Cross(d[2] - d[0], d[3] - d[1]));
    const double facing = std::fabs(Dot(normal, Normalised(d[4] - eye)));
    pixels *= std::clamp(std::sqrt(facing) * 1.3, 0.35, 1.0);
    if (distance > radius && !InView(d[4], radius * 1.5))
      pixels *= pixelAngle / std::fmax(kCoarserOutOfView * pixelAngle, kFinestOutOfView);
    else if (IsBehindHorizon(d[4], radius))
      pixels /= 8;
    return pixels / settings_.edgePixels;
  }

  bool InView(const trVector& centre, double radius) const {
    const trVector p = centre - settings_.view.eye;
    for (const trVector& plane : frustum_)
      if (Dot(plane, p) < -radius) return false;
    return true;
  }

  /// Whether a patch lies well beyond and below the line where the undisplaced ball falls away from the eye.
  bool IsBehindHorizon(const trVector& point, double radius) const {
    if (!mesh_.material->geometryShader) return false;
    const auto& transform = mesh_.scene->GetTransform();
    const trVector centre = transform.forward.Translation();
    const double ball = transform.Direction({0, 1, 0}).Length() * 0.998;
    const trVector toEye = settings_.view.eye - centre, toPoint = point - settings_.view.eye;
    const double eyeDistance = toEye.Length();
    if (eyeDistance <= ball) return false;
    const double length = toPoint.Length();
    const double along = -Dot(toPoint, toEye) / length;  // from the eye to the foot of the perpendicular
    if (along <= 0 || along + radius > length) return false;
    return eyeDistance * eyeDistance - along * along < (ball - radius) * std::fabs(ball - radius);
  }

  /// The node that was split into four, given in rows.
  static Node Joined(const Node* child) {
    const Node& first = child[0];
    return {first.quad,
            first.u,
            first.v,
            first.size * 2,
            first.level - 1,
            {first.displaced[0], child[1].displaced[1], child[3].displaced[2], child[2].displaced[3],
             first.displaced[2]}};
  }

  /// Puts hidden leaves together again where all four of a parent are hidden.
  void JoinHidden(std::vector<Node>& leaves) const {
    std::vector<PatchOutline> outlines;
    outlines.reserve(leaves.size());
    for (const Node& leaf : leaves) outlines.push_back(leaf.displaced);
    const std::vector<char> isHidden = FindHiddenPatches(outlines, settings_.view);

    std::vector<Node> hidden, kept;
    for (size_t i = 0; i < leaves.size(); ++i)
      (isHidden[i] && leaves[i].level > kLeastLevel ? hidden : kept).push_back(leaves[i]);
    // Siblings after one another, in rows.
    const auto parent = [](const Node& n) {
      return std::tuple(n.quad, n.size, std::floor(n.v / n.size / 2), std::floor(n.u / n.size / 2));
    };
    std::sort(hidden.begin(), hidden.end(), [&](const Node& a, const Node& b) {
      return std::tuple(parent(a), a.v, a.u) < std::tuple(parent(b), b.v, b.u);
    });
    for (size_t i = 0; i < hidden.size();) {
      const Node* child = &hidden[i];
      const bool areAll = i + 3 < hidden.size() && parent(child[0]) == parent(child[3]);
      kept.push_back(areAll ? Joined(child) : child[0]);
      i += areAll ? 4 : 1;
    }
    leaves = std::move(kept);
  }

  std::uint64_t PointKey(const Node& node, double u, double v) const {
    return KeyOf(mesh_.BasePoint(node.quad, node.u + u * node.size, node.v + v * node.size));
  }

  /// Splits leaves until none meets one that is two levels finer: such a neighbour has a corner a quarter
  /// along the edge.
  void Balance(std::vector<Node>& leaves, std::uint64_t& displacements) const {
    std::unordered_set<std::uint64_t> corners;
    const auto addCorners = [&](const Node& n) {
      for (const auto& [u, v] : {std::pair{0., 0.}, {1., 0.}, {1., 1.}, {0., 1.}})
        corners.insert(PointKey(n, u, v));
    };
    for (const Node& leaf : leaves) addCorners(leaf);
    for (;;) {
      std::vector<char> coarse(leaves.size());
      ParallelFor(leaves.size(), [&](size_t i) {
        for (const double q : {0.25, 0.75})
          for (const auto& [u, v] : {std::pair{q, 0.}, {1., q}, {q, 1.}, {0., q}})
            coarse[i] |= corners.count(PointKey(leaves[i], u, v)) != 0;
      });
      std::vector<Node> keep, split;
      for (size_t i = 0; i < leaves.size(); ++i) (coarse[i] ? split : keep).push_back(leaves[i]);
      if (split.empty() || Stopped()) return;
      const std::vector<Node> children = Split(split, displacements);
      for (const Node& child : children) addCorners(child);
      leaves = std::move(keep);
      leaves.insert(leaves.end(), children.begin(), children.end());
    }
  }

  const GridMesh& mesh_;
  const DiceSettings& settings_;
  trRenderServices& services_;
  std::array<trVector, 4> frustum_;
};

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
    Displacer displacer(mesh, settings, services);
    const size_t end = std::min(mesh.patches.size(), (task + 1) * kLeavesPerTask);
    for (size_t i = task * kLeavesPerTask; i < end; ++i) {
      Patch& patch = mesh.patches[i];
      GridVertex* vertices = &mesh.vertices[i * kPatchVertices];
      for (int row = 0; row < kPatchStride; ++row)
        for (int column = 0; column < kPatchStride; ++column) {
          trShadingInterface& si = displacer.Evaluate(patch.quad, patch.u0 + patch.size * column / kPatchSide,
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

std::uint64_t MaxLeaves(const DiceSettings& settings, std::uint64_t numQuads) {
  const std::uint64_t byMemory = settings.maxVertices ? settings.maxVertices / kPatchVertices : ~0ull;
  const std::uint64_t byPicture =
      settings.pictureVertices
          ? std::max(settings.pictureVertices / kPatchVertices, numQuads * kLeavesPerQuad)
          : ~0ull;
  return std::min(byMemory, byPicture);
}

}  // namespace

bool Dice(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
          DiceStatistics& statistics) {
  Refiner refiner(mesh, settings, services);
  const std::uint64_t maxLeaves = MaxLeaves(settings, mesh.quadCorners.size() / 4);
  std::vector<Node> leaves;
  if (!refiner.FindLeaves(maxLeaves, leaves, statistics.displacements))
    statistics.longestEdge = std::fmax(
        statistics.longestEdge, refiner.FindNeediestLeaves(maxLeaves, leaves, statistics.displacements));
  mesh.patches.reserve(leaves.size());
  for (const Node& leaf : leaves) mesh.patches.push_back({leaf.quad, leaf.u, leaf.v, leaf.size, {}});
  leaves = {};

  const std::vector<PatchEdges> edges = FindCoarserNeighbours(mesh);
  DisplacePatches(mesh, settings, services, edges);
  SmoothNormals(mesh, edges);
  statistics.patches += mesh.patches.size();
  statistics.vertices += mesh.vertices.size();
  statistics.displacements += mesh.vertices.size();
  return !(settings.stop && settings.stop->load());
}

}  // namespace ovhost
