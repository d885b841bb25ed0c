// Places within the patches of diced surfaces.
#pragma once

#include <algorithm>

#include "host/render/parts/grid_mesh.h"

namespace ovhost {

/// Where along a side of a patch a coordinate lies: a micropolygon and the place in it.
struct AlongPatch {
  int cell;
  double within;

  explicit AlongPatch(double x) {
    const double at = std::clamp(x, 0.0, 1.0) * kPatchSide;
    cell = std::min(static_cast<int>(at), kPatchSide - 1);
    within = at - cell;
  }
};

/// The micropolygon of a patch that a coordinate lies in, and how much each of its vertices counts there.
struct GridCell {
  const GridVertex* corners[4];
  double weights[4];

  GridCell(const GridMesh& mesh, std::uint32_t patch, double u, double v) {
    const AlongPatch column(u), row(v);
    const double s = column.within, t = row.within;
    const GridVertex* first = mesh.PatchVertices(patch) + row.cell * kPatchStride + column.cell;
    const GridVertex* found[4] = {first, first + 1, first + kPatchStride, first + kPatchStride + 1};
    const double shares[4] = {(1 - s) * (1 - t), s * (1 - t), (1 - s) * t, s * t};
    std::copy(found, found + 4, corners);
    std::copy(shares, shares + 4, weights);
  }
};

}  // namespace ovhost
