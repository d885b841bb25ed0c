// Solids cut out of space by planes.
#include "objects/cut_solid.h"

#include <algorithm>

#include "core/guarded.h"

namespace {

/// Corners nearer than this are one. The solids are about a unit large, and their corners end up in single
/// precision.
constexpr double kWeldDistance = 1e-7;
/// Planes that pass a polygon at more than this leave it as it is, whatever the rounding.
constexpr double kClearance = 1e-9;

bool IsCloseToZero(const trVector& v) {
  return std::fabs(v.x) < 0.01 && std::fabs(v.y) < 0.01 && std::fabs(v.z) < 0.01;
}

}  // namespace

void ClipPolygonAgainstPlane(CutPolygon& polygon, const CutPlane& plane) {
  const auto isOutside = [&plane](const trVector& p) { return !(plane.Height(p) >= 0); };
  if (std::none_of(polygon.begin(), polygon.end(), isOutside)) return;
  CutPolygon kept;
  kept.reserve(polygon.size() + 1);
  for (size_t i = 0; i < polygon.size(); ++i) {
    const trVector &a = polygon[i], &b = polygon[i + 1 < polygon.size() ? i + 1 : 0];
    const double heightA = plane.Height(a), heightB = plane.Height(b);
    if (heightA >= 0) kept.push_back(a);
    // From the inner point to the outer one, so that an edge is cut at one place whichever way it is run.
    if (heightA >= 0 && heightB < 0) kept.push_back(a + (b - a) * (heightA / (heightA - heightB)));
    if (heightB >= 0 && heightA < 0) kept.push_back(b + (a - b) * (heightB / (heightB - heightA)));
  }
  polygon = std::move(kept);
}

trVector DrawDirection(trMersenneTwister& draws) {
  trVector direction;
  direction.z = draws.Unit() - 0.5;
  direction.y = draws.Unit() - 0.5;
  direction.x = draws.Unit() - 0.5;
  return Normalised(direction);
}

CutPolygon WholePlane(const CutPlane& plane, trMersenneTwister& draws) {
  const trVector foot = plane.normal * -plane.offset, inward = -foot;
  trVector t;
  do {
    trVector towards;
    towards.z = draws.Unit();
    towards.y = draws.Unit();
    towards.x = draws.Unit();
    t = Normalised(Cross(towards - foot, inward));
  } while (IsCloseToZero(t));
  const trVector s = Normalised(Cross(t, inward));
  CutPolygon triangle{foot + (t * -0.5 + s * -0.3) * 10.0, foot + s * (0.55 * 10.0),
                      foot + (t * 0.5 + s * -0.3) * 10.0};
  // A plane that cuts the origin away has its front there.
  if (plane.offset < 0) std::reverse(triangle.begin(), triangle.end());
  return triangle;
}

void CutSolid::CutByOthers(size_t index, CutPolygon& polygon) const {
  const trVector foot = planes_[index].normal * -planes_[index].offset;
  const auto reachOf = [&foot](const CutPolygon& corners) {
    double squared = 0;
    for (const trVector& p : corners) squared = std::fmax(squared, (p - foot).LengthSquared());
    return std::sqrt(squared);
  };
  double reach = reachOf(polygon);
  for (size_t j = 0; j < planes_.size() && !polygon.empty(); ++j) {
    if (j == index || planes_[j].Height(foot) - reach > kClearance) continue;
    ClipPolygonAgainstPlane(polygon, planes_[j]);
    reach = reachOf(polygon);
  }
}

void CutSolid::CutPiece(Piece& piece, const CutPlane& plane, trMersenneTwister& draws) const {
  for (CutPolygon& polygon : piece.polygons) ClipPolygonAgainstPlane(polygon, plane);
  CutPolygon cap = WholePlane(plane, draws);
  for (const CutPlane& old : planes_) ClipPolygonAgainstPlane(cap, old);
  for (const CutPlane& old : piece.ownPlanes) ClipPolygonAgainstPlane(cap, old);
  piece.polygons.push_back(std::move(cap));
  piece.ownPlanes.push_back(plane);
  piece.DropEmpty();
}

void CutSolid::Shatter(double separation, trMersenneTwister& draws) {
  CutPlane plane;
  plane.normal = DrawDirection(draws);
  plane.offset = std::sqrt(draws.Unit() + 9.999999974752427e-7) * 0.75;
  const trVector offset = plane.normal * separation * 0.5;
  const size_t count = pieces_.size();
  for (size_t k = 0; k < count; ++k) pieces_.push_back(Piece(pieces_[k]));
  for (size_t k = 0; k < count; ++k) {
    CutPiece(pieces_[k], plane, draws);
    pieces_[k].translation += offset;
    CutPiece(pieces_[k + count], plane.Opposite(), draws);
    pieces_[k + count].translation -= offset;
  }
}

void CutSolid::Piece::DropEmpty() {
  polygons.erase(std::remove_if(polygons.begin(), polygons.end(),
                                [](const CutPolygon& polygon) { return polygon.empty(); }),
                 polygons.end());
}

void CutSolid::Piece::WeldCorners() {
  struct Corner {
    trVector* place;
    double x;  ///< before welding
  };
  std::vector<Corner> corners;
  for (CutPolygon& polygon : polygons)
    for (trVector& corner : polygon) corners.push_back({&corner, corner.x});
  std::stable_sort(corners.begin(), corners.end(),
                   [](const Corner& a, const Corner& b) { return a.x < b.x; });
  for (size_t i = 1; i < corners.size(); ++i)
    for (size_t j = i; j-- > 0 && corners[i].x - corners[j].x <= 2 * kWeldDistance;)
      if ((*corners[i].place - *corners[j].place).LengthSquared() <= kWeldDistance * kWeldDistance) {
        *corners[i].place = *corners[j].place;
        break;
      }

  for (CutPolygon& polygon : polygons) {
    polygon.erase(std::unique(polygon.begin(), polygon.end()), polygon.end());
    while (polygon.size() > 1 && polygon.front() == polygon.back()) polygon.pop_back();
    if (polygon.size() < 3) polygon.clear();
  }
  DropEmpty();
}

bool CutSolid::AddTo(trScene& scene, double size, long material) {
  const auto single = [](const trVector& p) {
    return trVector(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z));
  };
  for (Piece& piece : pieces_) {
    piece.WeldCorners();
    for (const CutPolygon& polygon : piece.polygons) {
      const long points = scene.NumPts() + 1, texVerts = scene.NumTexVerts() + 1,
                 normals = scene.NumNormals() + 1;
      for (const trVector& corner : polygon) {
        const trVector at = corner * size;
        // The normal is that of a ball, which smooth shading rounds the solid by.
        if (!scene.AddPoint({single(at + piece.translation * size)}) || !scene.AddTexVert({at}) ||
            !scene.AddNormal({Normalised(at)}))
          return false;
      }
      for (size_t k = 2; k < polygon.size(); ++k) {
        trTri tri;
        const long fan[3] = {0, static_cast<long>(k) - 1, static_cast<long>(k)};
        for (int i = 0; i < 3; ++i) {
          tri.point[i] = static_cast<std::int32_t>(points + fan[i]);
          tri.texVert[i] = static_cast<std::int32_t>(texVerts + fan[i]);
          tri.normal[i] = static_cast<std::int32_t>(normals + fan[i]);
        }
        tri.material = static_cast<std::int32_t>(material);
        if (!scene.AddTri(tri)) return false;
      }
    }
  }
  return true;
}
