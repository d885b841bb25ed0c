// Which piece of a grid a hit falls on.
#include "host/render/shade_cache.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Longest side of a piece that the camera sees, pixels, and most pieces along a micropolygon.
constexpr double kPiecePixels = 1.5;
constexpr int kMaxPieces = 8;

/// A hit's micropolygon and the place in it.
struct Cell {
  int i, j;
  double s, t;

  explicit Cell(const SurfaceHit& hit) {
    const double column = std::clamp(hit.u, 0.0, 1.0) * kPatchSide,
                 row = std::clamp(hit.v, 0.0, 1.0) * kPatchSide;
    i = std::min(static_cast<int>(column), kPatchSide - 1);
    j = std::min(static_cast<int>(row), kPatchSide - 1);
    s = column - i;
    t = row - j;
  }
};

const GridVertex* PatchVertices(const GridMesh& mesh, const SurfaceHit& hit) {
  return &mesh.vertices[static_cast<size_t>(hit.primitive) * kPatchVertices];
}

trVector Blend(const GridVertex* corner, double s, double t) {
  const trVector low = trVector(corner[0].point) * (1 - s) + trVector(corner[1].point) * s;
  const trVector high =
      trVector(corner[kPatchStride].point) * (1 - s) + trVector(corner[kPatchStride + 1].point) * s;
  return low * (1 - t) + high * t;
}

}  // namespace

bool PieceForCamera(const GridMesh& mesh, const SurfaceHit& hit, double pixelAngle, ShadePiece& piece) {
  const Cell cell(hit);
  const GridVertex* corner = PatchVertices(mesh, hit) + cell.j * kPatchStride + cell.i;
  const trVector first(corner->point);
  const double edgeSquared = std::fmax((trVector(corner[1].point) - first).LengthSquared(),
                                       (trVector(corner[kPatchStride].point) - first).LengthSquared());
  const double edge = std::sqrt(edgeSquared);
  const double wanted = std::ceil(edge / (kPiecePixels * pixelAngle * std::fmax(first.Length(), 1e-6)));
  if (!(wanted <= kMaxPieces)) return false;
  const int pieces = std::max(static_cast<int>(wanted), 1);
  const int column = std::min(static_cast<int>(cell.s * pieces), pieces - 1),
            row = std::min(static_cast<int>(cell.t * pieces), pieces - 1);
  piece.part = hit.part;
  piece.patch = hit.primitive;
  piece.number =
      static_cast<std::uint32_t>(((cell.j * kPatchSide + cell.i) * kMaxPieces + row) * kMaxPieces + column);
  const double s = (column + 0.5) / pieces, t = (row + 0.5) / pieces;
  piece.u = (cell.i + s) / kPatchSide;
  piece.v = (cell.j + t) / kPatchSide;
  piece.middle = Blend(corner, s, t);
  piece.size = edge / pieces;
  return true;
}

void PieceForBounce(const GridMesh& mesh, const SurfaceHit& hit, double footprint, ShadePiece& piece) {
  const Cell cell(hit);
  const GridVertex* vertices = PatchVertices(mesh, hit);
  const trVector across =
      trVector(vertices[kPatchVertices - 1].point) - trVector(vertices[0].point);  // the patch's diagonal
  const double edge = across.Length() * (0.70710678 / kPatchSide);
  int side = 1;
  while (side < kPatchSide && 2 * side * edge <= footprint) side *= 2;
  const int i = cell.i / side * side, j = cell.j / side * side;
  piece.part = hit.part;
  piece.patch = hit.primitive;
  piece.number = static_cast<std::uint32_t>((side * kPatchSide + j) * kPatchSide + i);
  piece.u = (i + 0.5 * side) / kPatchSide;
  piece.v = (j + 0.5 * side) / kPatchSide;
  const int half = side / 2;
  piece.middle = side == 1 ? Blend(vertices + j * kPatchStride + i, 0.5, 0.5)
                           : trVector(vertices[(j + half) * kPatchStride + i + half].point);
  piece.size = edge * side;
}

}  // namespace ovhost
