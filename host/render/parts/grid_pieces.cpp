// Which piece of a diced surface a hit falls on, and which of its vertices are near.
#include <algorithm>
#include <cmath>

#include "host/render/parts/grid_cell.h"
#include "host/render/parts/surface_hit.h"

namespace ovhost {
namespace {

/// Longest side of a piece that the camera sees, pixels; most pieces along a micropolygon, and most
/// micropolygons along a piece of such.
constexpr double kPiecePixels = 1.0;
constexpr int kMaxPieces = 8, kLargestBlock = 4;
/// Pieces are no longer than this makes them, however flatly they are seen.
constexpr double kLeastFacing = 0.2;

/// One direction's share of a piece: its number among all sizes, and its middle along the patch.
struct Side {
  std::uint32_t number;
  double middle;
};

/// Numbers below this are parts of micropolygons, the others blocks of them.
constexpr int kFirstBlock = (kMaxPieces + 1) * kMaxPieces * kPatchSide;

/// A block of `cells` micropolygons.
Side BlockSide(const AlongPatch& at, int cells) {
  const int first = at.cell / cells * cells;
  return {static_cast<std::uint32_t>(kFirstBlock + cells * kPatchSide + first),
          (first + 0.5 * cells) / kPatchSide};
}

/// One of `pieces` parts of a micropolygon.
Side PartSide(const AlongPatch& at, int pieces) {
  const int part = std::min(static_cast<int>(at.within * pieces), pieces - 1);
  return {static_cast<std::uint32_t>((pieces * kMaxPieces + part) * kPatchSide + at.cell),
          (at.cell + (part + 0.5) / pieces) / kPatchSide};
}

/// A piece along an edge that measures `edgeSquared`, where a pixel's piece may measure `limitSquared`. False
/// past kMaxPieces.
bool PixelSide(const AlongPatch& at, double edgeSquared, double limitSquared, Side& side) {
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

void SetPiece(const SurfaceHit& hit, const Side& u, const Side& v, SurfacePiece& piece) {
  piece.part = hit.part;
  piece.primitive = hit.primitive;
  piece.number = v.number << 16 | u.number;
  piece.u = u.middle;
  piece.v = v.middle;
}

/// Length of a patch's micropolygons, on the whole.
double MeanEdge(const GridMesh& mesh, std::uint32_t patch) {
  const GridVertex* vertices = mesh.PatchVertices(patch);
  const trVector diagonal = trVector(vertices[kPatchVertices - 1].point) - trVector(vertices[0].point);
  return diagonal.Length() * (0.70710678 / kPatchSide);
}

/// How many micropolygons of a patch make up `spacing` metres, from its first vertex to the one `side`
/// further on; as the eye sees them, or as they are.
int CellsBetween(const GridVertex* vertices, int side, bool fromEye, double spacing) {
  const trVector corner(vertices[0].point), edge = trVector(vertices[side].point) - corner;
  double length2 = edge.LengthSquared();
  if (fromEye) {
    const double away = Dot(edge, Normalised(corner));
    length2 = std::fmax(length2 - away * away, 0);
  }
  int cells = 1;
  while (cells < kPatchSide && 4.0 * cells * cells * length2 <= spacing * spacing * (kPatchSide * kPatchSide))
    cells *= 2;
  return cells;
}

/// Where a coordinate of a patch lies between vertices `cells` micropolygons apart.
struct Between {
  int first, last;
  double weight;  ///< of the last

  Between(double x, int cells) {
    const double at = std::clamp(x, 0.0, 1.0) * kPatchSide;
    first = std::min(static_cast<int>(at), kPatchSide - 1) / cells * cells;
    last = first + cells;
    weight = (at - first) / cells;
  }
};

}  // namespace

bool GridMesh::PieceForCamera(const SurfaceHit& hit, double pixelAngle, SurfacePiece& piece) const {
  const AlongPatch column(hit.u), row(hit.v);
  const GridVertex* corner = PatchVertices(hit.primitive) + row.cell * kPatchStride + column.cell;
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

double GridMesh::PieceForBounce(const SurfaceHit& hit, double footprint, SurfacePiece& piece) const {
  const double edge = MeanEdge(*this, hit.primitive);
  int cells = 1;
  while (cells < kPatchSide && 2 * cells * edge <= footprint) cells *= 2;
  SetPiece(hit, BlockSide(AlongPatch(hit.u), cells), BlockSide(AlongPatch(hit.v), cells), piece);
  return edge * cells;
}

double GridMesh::PieceForCone(const SurfaceHit& hit, const trVector& direction, double footprint,
                              SurfacePiece& piece) const {
  const GridVertex* ofPatch = PatchVertices(hit.primitive);
  const trVector corner(ofPatch[0].point);
  const double limit = 2 * footprint;
  double area = 1;
  // Along each side of the patch: what its micropolygons measure, and what they look like.
  const auto sideAlong = [&](double x, int lastVertex, Side& side) {
    const trVector edge = (trVector(ofPatch[lastVertex].point) - corner) * (1.0 / kPatchSide);
    const double length = edge.Length(), along = Dot(edge, direction);
    const double seen = std::sqrt(std::fmax(length * length - along * along, 0));
    if (seen <= limit) {
      int cells = 1;
      while (cells < kPatchSide && 2 * cells * std::fmax(seen, kLeastFacing * length) <= limit) cells *= 2;
      side = BlockSide(AlongPatch(x), cells);
      area *= length * cells;
      return true;
    }
    int pieces = 2;
    while (pieces < kMaxPieces && seen > limit * pieces) pieces *= 2;
    side = PartSide(AlongPatch(x), pieces);
    area *= length / pieces;
    return seen <= limit * pieces;
  };
  Side u, v;
  if (!sideAlong(hit.u, kPatchSide, u) || !sideAlong(hit.v, kPatchSide * kPatchStride, v)) return 0;
  SetPiece(hit, u, v, piece);
  return std::sqrt(area);
}

trVector GridMesh::PointAt(std::uint32_t primitive, double u, double v) const {
  const AlongPatch column(u), row(v);
  const GridVertex* corner = PatchVertices(primitive) + row.cell * kPatchStride + column.cell;
  const double s = column.within, t = row.within;
  const trVector low = trVector(corner[0].point) * (1 - s) + trVector(corner[1].point) * s;
  const trVector high =
      trVector(corner[kPatchStride].point) * (1 - s) + trVector(corner[kPatchStride + 1].point) * s;
  return low * (1 - t) + high * t;
}

int GridMesh::VerticesNear(const SurfaceHit& hit, double spacing, bool fromEye, NearVertex* found) const {
  const GridVertex* ofPatch = PatchVertices(hit.primitive);
  const Between column(hit.u, CellsBetween(ofPatch, kPatchSide, fromEye, spacing)),
      row(hit.v, CellsBetween(ofPatch, kPatchSide * kPatchStride, fromEye, spacing));
  int count = 0;
  for (int corner = 0; corner < kMostNear; ++corner) {
    const double weight =
        (corner & 1 ? column.weight : 1 - column.weight) * (corner & 2 ? row.weight : 1 - row.weight);
    if (!(weight > 0)) continue;
    const GridVertex& vertex = ofPatch[(corner & 2 ? row.last : row.first) * kPatchStride +
                                       (corner & 1 ? column.last : column.first)];
    found[count++] = {vertex.point, vertex.normal, weight};
  }
  return count;
}

}  // namespace ovhost
