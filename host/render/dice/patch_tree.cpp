// Refining a quadtree by what edges measure on screen, and balancing it.
#include "host/render/dice/patch_tree.h"

#include <algorithm>
#include <limits>
#include <new>
#include <tuple>
#include <unordered_set>

#include "host/base/parallel.h"
#include "host/render/dice/patch_edges.h"

namespace ovhost {
namespace {

constexpr int kMaxLevel = 40;
/// Until patches are small against the planet their corners say little of what lies between.
constexpr int kLeastLevel = 1;
constexpr double kLargestSize = 1e300;
/// Balancing splits some leaves more: so much of a limit is left to it, and again where that was too little.
constexpr double kLeftToBalancing = 0.85;
constexpr int kMaxBalancings = 40;
/// What the surface hides from the eye shows in mirrors at most: as many levels coarser.
constexpr int kCoarserHidden = 2;

/// Whether the quads of a base mesh lie all round a ball of radius 1, which then hides what is behind it.
bool IsMadeOfABall(const GridMesh& mesh) {
  constexpr double kLeastHeight = 0.9;
  for (size_t i = 0; i + 3 < mesh.quadCorners.size(); i += 4) {
    trVector middle;
    for (size_t k = 0; k < 4; ++k) middle += mesh.quadCorners[i + k] * 0.25;
    const double height = middle.Length();
    if (!(height > kLeastHeight && height <= 1)) return false;
  }
  return true;
}

}  // namespace

PatchTree::PatchTree(const GridMesh& mesh, const DiceSettings& settings, trRenderServices& services)
    : mesh_(mesh),
      isBall_(mesh.material->geometryShader && IsMadeOfABall(mesh)),
      settings_(settings),
      services_(services),
      metric_(settings.view) {}

bool PatchTree::FindLeaves(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
                           std::uint64_t& displacements) const {
  leaves.clear();
  std::vector<PatchNode> front = Roots(displacements);
  while (!front.empty() && !Stopped()) {
    std::vector<PatchNode> next;
    for (const PatchNode& node : front) (EdgeSize(node) > 1 ? next : leaves).push_back(node);
    if (leaves.size() + next.size() * 4 > maxLeaves) return false;
    front = Split(next, displacements);
  }
  for (int i = 0; i < kCoarserHidden && settings_.copiedEdge == 0 && !Stopped(); ++i) JoinHidden(leaves);
  Balance(leaves, displacements);
  return leaves.size() <= maxLeaves;
}

double PatchTree::FindNeediestLeaves(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
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

std::vector<PatchNode> PatchTree::Roots(std::uint64_t& displacements) const {
  std::vector<PatchNode> roots;
  for (std::uint32_t quad = 0; quad < mesh_.quadCorners.size() / 4; ++quad) {
    roots.push_back({quad, 0, 0, 1, 0, {}});
    EvaluateNode(roots.back());
    displacements += 5;
  }
  return roots;
}

double PatchTree::SplitNeediest(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
                                std::uint64_t& displacements) const {
  std::vector<SizedPatch> sized = Sized(Roots(displacements));
  double largest = 0;
  for (;;) {
    largest = 0;
    for (const SizedPatch& leaf : sized) largest = std::fmax(largest, leaf.size);
    const std::uint64_t room = maxLeaves > sized.size() ? (maxLeaves - sized.size()) / 3 : 0;
    if (largest <= 1 || room == 0 || Stopped()) break;
    const double above = std::fmax(1, largest / 2);
    const auto middle = std::stable_partition(sized.begin(), sized.end(),
                                              [&](const SizedPatch& leaf) { return !(leaf.size > above); });
    std::stable_sort(middle, sized.end(),
                     [](const SizedPatch& a, const SizedPatch& b) { return a.size < b.size; });
    const size_t count = std::min<std::uint64_t>(sized.end() - middle, room);
    std::vector<PatchNode> split;
    for (auto leaf = sized.end() - count; leaf != sized.end(); ++leaf) split.push_back(leaf->node);
    sized.resize(sized.size() - count);
    const std::vector<SizedPatch> children = Sized(Split(split, displacements));
    sized.insert(sized.end(), children.begin(), children.end());
  }
  leaves.clear();
  for (const SizedPatch& leaf : sized) {
    if (leaf.node.level < kLeastLevel) throw std::bad_alloc();
    leaves.push_back(leaf.node);
  }
  return std::fmax(largest, 1);
}

std::vector<SizedPatch> PatchTree::Sized(const std::vector<PatchNode>& nodes) const {
  std::vector<SizedPatch> sized;
  sized.reserve(nodes.size());
  for (const PatchNode& node : nodes) sized.push_back({node, std::fmin(EdgeSize(node), kLargestSize)});
  return sized;
}

bool PatchTree::Stopped() const { return settings_.stop && settings_.stop->load(std::memory_order_relaxed); }

void PatchTree::EvaluateNode(PatchNode& node) const {
  DisplacementSampler sampler(*mesh_.scene, settings_, services_);
  static constexpr double kU[] = {0, 1, 1, 0, 0.5}, kV[] = {0, 0, 1, 1, 0.5};
  for (int i = 0; i < 5; ++i)
    node.displaced[i] =

        PlaceOnGrid(sampler, mesh_, node.quad, node.u + node.size * kU[i], node.v + node.size * kV[i]).P();
}

std::vector<PatchNode> PatchTree::Split(const std::vector<PatchNode>& nodes,
                                        std::uint64_t& displacements) const {
  std::vector<PatchNode> children(nodes.size() * 4);
  ParallelFor(nodes.size(), [&](size_t i) { SplitOne(nodes[i], &children[4 * i]); });
  displacements += nodes.size() * 8;
  return children;
}

void PatchTree::SplitOne(const PatchNode& node, PatchNode* children) const {
  DisplacementSampler sampler(*mesh_.scene, settings_, services_);
  const double half = node.size / 2;
  const auto at = [&](double u, double v) {
    return PlaceOnGrid(sampler, mesh_, node.quad, node.u + u * half, node.v + v * half).P();
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

double PatchTree::EdgeSize(const PatchNode& node) const {
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
  if (distance > radius && !metric_.IsInView(d[4] - eye, radius * 1.5))
    pixels *= metric_.ShareOutOfView();
  else if (IsBehindHorizon(d[4], radius))
    pixels /= 8;
  return pixels / settings_.edgePixels;
}

bool PatchTree::IsBehindHorizon(const trVector& point, double radius) const {
  if (!isBall_) return false;
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

PatchNode PatchTree::Joined(const PatchNode* child) {
  const PatchNode& first = child[0];
  return {first.quad,
          first.u,
          first.v,
          first.size * 2,
          first.level - 1,
          {first.displaced[0], child[1].displaced[1], child[3].displaced[2], child[2].displaced[3],
           first.displaced[2]}};
}

void PatchTree::JoinHidden(std::vector<PatchNode>& leaves) const {
  std::vector<PatchOutline> outlines;
  outlines.reserve(leaves.size());
  for (const PatchNode& leaf : leaves) outlines.push_back(leaf.displaced);
  const std::vector<char> isHidden = FindHiddenPatches(outlines, settings_.view, settings_.stop);

  std::vector<PatchNode> hidden, kept;
  for (size_t i = 0; i < leaves.size(); ++i)
    (isHidden[i] && leaves[i].level > kLeastLevel ? hidden : kept).push_back(leaves[i]);
  // Siblings after one another, in rows.
  const auto parent = [](const PatchNode& n) {
    return std::tuple(n.quad, n.size, std::floor(n.v / n.size / 2), std::floor(n.u / n.size / 2));
  };
  std::sort(hidden.begin(), hidden.end(), [&](const PatchNode& a, const PatchNode& b) {
    return std::tuple(parent(a), a.v, a.u) < std::tuple(parent(b), b.v, b.u);
  });
  for (size_t i = 0; i < hidden.size();) {
    const PatchNode* child = &hidden[i];
    const bool areAll = i + 3 < hidden.size() && parent(child[0]) == parent(child[3]);
    kept.push_back(areAll ? Joined(child) : child[0]);
    i += areAll ? 4 : 1;
  }
  leaves = std::move(kept);
}

std::uint64_t PatchTree::PointKey(const PatchNode& node, double u, double v) const {
  return KeyOf(mesh_.BasePoint(node.quad, node.u + u * node.size, node.v + v * node.size));
}

void PatchTree::Balance(std::vector<PatchNode>& leaves, std::uint64_t& displacements) const {
  std::unordered_set<std::uint64_t> corners;
  const auto addCorners = [&](const PatchNode& n) {
    for (const auto& [u, v] : {std::pair{0., 0.}, {1., 0.}, {1., 1.}, {0., 1.}})
      corners.insert(PointKey(n, u, v));
  };
  for (const PatchNode& leaf : leaves) addCorners(leaf);
  for (;;) {
    std::vector<char> coarse(leaves.size());
    ParallelFor(leaves.size(), [&](size_t i) {
      for (const double q : {0.25, 0.75})
        for (const auto& [u, v] : {std::pair{q, 0.}, {1., q}, {q, 1.}, {0., q}})
          coarse[i] |= corners.count(PointKey(leaves[i], u, v)) != 0;
    });
    std::vector<PatchNode> keep, split;
    for (size_t i = 0; i < leaves.size(); ++i) (coarse[i] ? split : keep).push_back(leaves[i]);
    if (split.empty() || Stopped()) return;
    const std::vector<PatchNode> children = Split(split, displacements);
    for (const PatchNode& child : children) addCorners(child);
    leaves = std::move(keep);
    leaves.insert(leaves.end(), children.begin(), children.end());
  }
}

}  // namespace ovhost
