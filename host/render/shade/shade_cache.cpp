// Which piece of a grid a hit falls on.
#include "host/render/shade/shade_cache.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Longest side of a piece that the camera sees, pixels; most pieces along a micropolygon, and most
/// micropolygons along a piece of such.
constexpr double kPiecePixels = 1.0;
constexpr int kMaxPieces = 8, kLargestBlock = 4;
/// Pieces are no longer than this makes them, however flatly they are seen.
constexpr double kLeastFacing = 0.2;

/// Where along a side of a patch a coordinate lies: a micropolygon and the place in it.
struct Along {
  int cell;
  double within;

  explicit Along(double x) {
    const double at = std::clamp(x, 0.0, 1.0) * kPatchSide;
    cell = std::min(static_cast<int>(at), kPatchSide - 1);
    within = at - cell;
  }
};

/// One direction's share of a piece: its number among all sizes, and its middle along the patch.
struct Side {
  std::uint32_t number;
  double middle;
};

/// Numbers below this are parts of micropolygons, the others blocks of them.
constexpr int kFirstBlock = (kMaxPieces + 1) * kMaxPieces * kPatchSide;

/// A block of `cells` micropolygons.
Side BlockSide(const Along& at, int cells) {
  const int first = at.cell / cells * cells;
  return {static_cast<std::uint32_t>(kFirstBlock + cells * kPatchSide + first),
          (first + 0.5 * cells) / kPatchSide};
}

/// One of `pieces` parts of a micropolygon.
Side PartSide(const Along& at, int pieces) {
  const int part = std::min(static_cast<int>(at.within * pieces), pieces - 1);
  return {static_cast<std::uint32_t>((pieces * kMaxPieces + part) * kPatchSide + at.cell),
          (at.cell + (part + 0.5) / pieces) / kPatchSide};
}

/// A piece along an edge that measures `edgeSquared`, where a pixel's piece may measure `limitSquared`. False
/// past kMaxPieces.
bool PixelSide(const Along& at, double edgeSquared, double limitSquared, Side& side) {
  if (!(edgeSquared <= limitSquared * (kMaxPieces * kMaxPieces))) return false;
  if (edgeSquared <= limitSquared) {
    int cells = 1;
    while (cells < kLargestBlock && edgeSquared * (4 * cells * cells) <= limitSquared) cells *= 2;
    side = BlockSide(at, cells);
    return true;
  }
  int pieces = 2;
  while (edgeSquared > limitSquared * (pieces * pieces)) ++pieces;
  side = PartSide(at, pieces);
  return true;
}

void SetPiece(const SurfaceHit& hit, const Side& u, const Side& v, ShadePiece& piece) {
  piece.part = hit.part;
  piece.patch = hit.primitive;
  piece.number = v.number << 16 | u.number;
  piece.u = u.middle;
  piece.v = v.middle;
}

const GridVertex* PatchVertices(const GridMesh& mesh, std::uint32_t patch) {
  return &mesh.vertices[static_cast<size_t>(patch) * kPatchVertices];
}

/// Length of a patch's micropolygons, on the whole.
double MeanEdge(const GridMesh& mesh, std::uint32_t patch) {
  const GridVertex* vertices = PatchVertices(mesh, patch);
  const trVector diagonal = trVector(vertices[kPatchVertices - 1].point) - trVector(vertices[0].point);
  return diagonal.Length() * (0.70710678 / kPatchSide);
}

}  // namespace

bool PieceForCamera(const GridMesh& mesh, const SurfaceHit& hit, double pixelAngle, ShadePiece& piece) {
  const Along column(hit.u), row(hit.v);
  const GridVertex* corner = PatchVertices(mesh, hit.primitive) + row.cell * kPatchStride + column.cell;
  const trVector eyeToCorner(corner->point);
  const double distanceSquared = std::fmax(eyeToCorner.LengthSquared(), 1e-12);
  // Edges as they look from the eye, foreshortened.
  const auto seenSquared = [&](const trVector& edge) {
    const double away = Dot(edge, eyeToCorner);
    return std::fmax(edge.LengthSquared() - away * away / distanceSquared, 0);
  };
  const double limit = kPiecePixels * pixelAngle, limitSquared = limit * limit * distanceSquared;
  Side u, v;
  if (!PixelSide(column, seenSquared(trVector(corner[1].point) - eyeToCorner), limitSquared, u) ||
      !PixelSide(row, seenSquared(trVector(corner[kPatchStride].point) - eyeToCorner), limitSquared, v))
    return false;
  SetPiece(hit, u, v, piece);
  return true;
}

double PieceForBounce(const GridMesh& mesh, const SurfaceHit& hit, double footprint, ShadePiece& piece) {
  const double edge = MeanEdge(mesh, hit.primitive);
  int cells = 1;
  while (cells < kPatchSide && 2 * cells * edge <= footprint) cells *= 2;
  SetPiece(hit, BlockSide(Along(hit.u), cells), BlockSide(Along(hit.v), cells), piece);
  return edge * cells;
}

double PieceForCone(const GridMesh& mesh, const SurfaceHit& hit, const trVector& direction, double footprint,
                    ShadePiece& piece) {
  const GridVertex* vertices = PatchVertices(mesh, hit.primitive);
  const trVector corner(vertices[0].point);
  const double limit = 2 * footprint;
  double area = 1;
  // Along each side of the patch: what its micropolygons measure, and what they look like.
  const auto sideAlong = [&](double x, int lastVertex, Side& side) {
    const trVector edge = (trVector(vertices[lastVertex].point) - corner) * (1.0 / kPatchSide);
    const double length = edge.Length(), along = Dot(edge, direction);
    const double seen = std::sqrt(std::fmax(length * length - along * along, 0));
    if (seen <= limit) {
      int cells = 1;
      while (cells < kPatchSide && 2 * cells * std::fmax(seen, kLeastFacing * length) <= limit) cells *= 2;
      side = BlockSide(Along(x), cells);
      area *= length * cells;
      return true;
    }
    int pieces = 2;
    while (pieces < kMaxPieces && seen > limit * pieces) pieces *= 2;
    side = PartSide(Along(x), pieces);
    area *= length / pieces;
    return seen <= limit * pieces;
  };
  Side u, v;
  if (!sideAlong(hit.u, kPatchSide, u) || !sideAlong(hit.v, kPatchSide * kPatchStride, v)) return 0;
  SetPiece(hit, u, v, piece);
  return std::sqrt(area);
}

trVector MiddleOf(const GridMesh& mesh, const ShadePiece& piece) {
  const Along column(piece.u), row(piece.v);
  const GridVertex* corner = PatchVertices(mesh, piece.patch) + row.cell * kPatchStride + column.cell;
  const double s = column.within, t = row.within;
  const trVector low = trVector(corner[0].point) * (1 - s) + trVector(corner[1].point) * s;
  const trVector high =
      trVector(corner[kPatchStride].point) * (1 - s) + trVector(corner[kPatchStride + 1].point) * s;
  return low * (1 - t) + high * t;
}

}  // namespace ovhost
