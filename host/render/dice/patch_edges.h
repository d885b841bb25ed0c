// Where diced patches meet: keys of points that patches share, and border vertices that fall on a coarser
// neighbour's.
#pragma once

#include <bit>

#include "host/base/sampler.h"
#include "host/render/parts/grid_mesh.h"

namespace ovhost {

/// A base point as a key: its bits, mixed. 64 bits over some ten million points: a clash has a chance near
/// 1e-6 and would only split a patch too many.
inline std::uint64_t KeyOf(const trVector& p) {
  std::uint64_t h = 0x243f6a8885a308d3ull;
  for (const double c : {p.x + 0.0, p.y + 0.0, p.z + 0.0})
    h = MixBits64(h ^ std::bit_cast<std::uint64_t>(c)) * 31;
  return h;
}

/// The side of a patch that vertex index k of it runs along: 0 bottom, 1 right, 2 top, 3 left.
inline int BorderVertex(int side, int k) {
  switch (side) {
    case 0:
      return k;
    case 1:
      return k * kPatchStride + kPatchSide;
    case 2:
      return kPatchSide * kPatchStride + k;
    default:
      return k * kPatchStride;
  }
}

struct PatchEdges {
  bool coarserNeighbour[4] = {false, false, false, false};
};

/// Calls `use(vertex, onto)` for every border vertex that falls on its neighbour.
template <typename Use>
void ForSnappedVertices(const PatchEdges& edges, Use use) {
  for (int side = 0; side < 4; ++side)
    if (edges.coarserNeighbour[side])
      for (int k = 1; k < kPatchSide; k += 2) use(BorderVertex(side, k), BorderVertex(side, k - 1));
}

}  // namespace ovhost
