// The quadtree of a diced surface: which patches it is cut into.
#pragma once

#include <vector>

#include "host/render/dice/displacement_sampler.h"
#include "host/render/dice/hidden_patches.h"
#include "host/render/dice/view_metric.h"
#include "host/render/parts/grid_mesh.h"

namespace ovhost {

struct PatchNode {
  std::uint32_t quad;
  double u, v, size;
  int level;
  PatchOutline displaced;  ///< corners (0,0) (1,0) (1,1) (0,1), centre
};

/// A leaf with the length of its micropolygons' edges, in wanted lengths.
struct SizedPatch {
  PatchNode node;
  double size;
};

/// Leaves the displaced sample of a base mesh's point in the state.
inline trShadingInterface& PlaceOnGrid(DisplacementSampler& sampler, const GridMesh& mesh, std::uint32_t quad,
                                       double u, double v) {
  return sampler.OnGeometry(*mesh.material, mesh.BasePoint(quad, u, v));
}

/// Builds the quadtree. The result doesn't depend on how many workers there are.
class PatchTree {
 public:
  PatchTree(const GridMesh& mesh, const DiceSettings& settings, trRenderServices& services);
  /// All that are needed. False where there would be more than `maxLeaves`.
  bool FindLeaves(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
                  std::uint64_t& displacements) const;
  /// As many as are allowed, split in order of need. The longest edge that is left, in wanted lengths.
  double FindNeediestLeaves(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
                            std::uint64_t& displacements) const;

 private:
  std::vector<PatchNode> Roots(std::uint64_t& displacements) const;
  /// In rounds: all leaves above half the largest size are split at once, or the largest of them once there
  /// is no room for all.
  double SplitNeediest(std::uint64_t maxLeaves, std::vector<PatchNode>& leaves,
                       std::uint64_t& displacements) const;
  std::vector<SizedPatch> Sized(const std::vector<PatchNode>& nodes) const;
  bool Stopped() const;
  void EvaluateNode(PatchNode& node) const;
  std::vector<PatchNode> Split(const std::vector<PatchNode>& nodes, std::uint64_t& displacements) const;
  void SplitOne(const PatchNode& node, PatchNode* children) const;
  /// How long the edges of a leaf's micropolygons look, in wanted lengths: it is split where that is over 1.
  double EdgeSize(const PatchNode& node) const;
  /// Whether a patch lies well beyond and below the line where the undisplaced ball falls away from the eye.
  bool IsBehindHorizon(const trVector& point, double radius) const;
  /// The node that was split into four, given in rows.
  static PatchNode Joined(const PatchNode* child);
  /// Puts hidden leaves together again where all four of a parent are hidden.
  void JoinHidden(std::vector<PatchNode>& leaves) const;
  std::uint64_t PointKey(const PatchNode& node, double u, double v) const;
  /// Splits leaves until none meets one that is two levels finer: such a neighbour has a corner a quarter
  /// along the edge.
  void Balance(std::vector<PatchNode>& leaves, std::uint64_t& displacements) const;
  const GridMesh& mesh_;
  const bool isBall_;  ///< made of a ball of radius 1
  const DiceSettings& settings_;
  trRenderServices& services_;
  ViewMetric metric_;
};

}  // namespace ovhost
