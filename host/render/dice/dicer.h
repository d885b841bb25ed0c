// Cutting surfaces into patches of micropolygons as fine as the view asks.
#pragma once

#include <atomic>

#include "core/render_state.h"
#include "host/render/parts/grid_mesh.h"

namespace ovhost {

/// What dicing needs to know of the view.
struct DiceSettings {
  trView view;
  double edgePixels = 1.4;        ///< wanted length of a micropolygon's edge on screen
  std::uint64_t maxVertices = 0;  ///< that there is memory for; 0: no limit
  /// That the picture's size is worth; 0: no limit. Every surface may have some, however small the picture.
  std::uint64_t pictureVertices = 0;
  double frame = 1;
  std::uint64_t seed = 0;
  const std::atomic<bool>* stop = nullptr;
  /// For a surface that is copied, which no view of its own looks at: how long edges are everywhere, metres,
  /// and what vertices are relative to instead of the eye. 0 goes by the view.
  double copiedEdge = 0;
  trVector origin;

  const trVector& Origin() const { return copiedEdge > 0 ? origin : view.eye; }
};

struct DiceStatistics {
  std::uint64_t vertices = 0, displacements = 0, patches = 0;
  double longestEdge = 1;   ///< in wanted lengths, where a limit of vertices left edges longer than that
  bool isByMemory = false;  ///< whether that limit was memory's

  void AddLongest(double edge, bool byMemory) {
    if (!(edge > longestEdge)) return;
    longestEdge = edge;
    isByMemory = byMemory;
  }
};

/// How many vertices a surface can't do without, and how many it takes as finely as it is wanted.
struct VertexDemand {
  std::uint64_t least = 0, wanted = 0;
};

/// What is known of that before any patch is looked for: the most that the picture's size is worth.
VertexDemand DemandOf(const GridMesh& mesh, const DiceSettings& settings);

/// Finds the patches that the view asks for: the first step of Dice, which goes on from there. Costs about a
/// hundredth of it. False, and no patches, where they would have more vertices than allowed.
bool FindPatches(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                 DiceStatistics& statistics);

/// Cuts the scene's surface into patches for the view, displaces every vertex, and smooths the normals. Where
/// that would take more vertices than allowed, what looks longest is cut first, until they are used up. False
/// when it was stopped. Uses all workers of the caller's TBB arena; the result doesn't depend on how many
/// there are. Throws std::bad_alloc where even the coarsest surface has more vertices than allowed.
OV_API bool Dice(GridMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                 DiceStatistics& statistics);

/// Radius of the filter footprint at a distance from the eye, metres.
inline double FootprintAt(const trView& view, double edgePixels, double distance) {
  return std::fmax(distance, view.nearClip) * view.PixelAngularSize() * edgePixels;
}

}  // namespace ovhost
