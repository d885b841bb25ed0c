// Solids cut out of space by planes, and split by further ones.
#pragma once

#include <vector>

#include "core/random.h"
#include "core/scene.h"

/// Keeps the points p with normal . p + offset >= 0.
struct CutPlane {
  trVector normal;  ///< unit, towards what is kept
  double offset = 0;

  double Height(const trVector& p) const { return Dot(normal, p) + offset; }
  CutPlane Opposite() const { return {-normal, -offset}; }
};

/// Corners of a convex polygon; none where it was cut away whole.
using CutPolygon = std::vector<trVector>;

/// What of a convex polygon lies on the kept side of a plane.
void ClipPolygonAgainstPlane(CutPolygon& polygon, const CutPlane& plane);

/// A direction along (third draw, second draw, first draw), each less a half.
trVector DrawDirection(trMersenneTwister& draws);

/// A triangle in the plane, about the foot of the origin and ten times a unit wide, turned by draws. Its
/// front is on the side that the plane cuts away.
CutPolygon WholePlane(const CutPlane& plane, trMersenneTwister& draws);

/// The intersection of half-spaces, whole or in fragments.
class CutSolid {
 public:
  /// Draws a plane and then its tangent before the next plane. `nextPlane` gives plane i.
  template <typename F>
  CutSolid(long planes, trMersenneTwister& draws, const F& nextPlane) {
    Piece whole;
    for (long i = 0; i < planes; ++i) {
      planes_.push_back(nextPlane(i));
      whole.polygons.push_back(WholePlane(planes_.back(), draws));
    }
    pieces_.push_back(std::move(whole));
  }

  /// Cuts every plane's polygon by all others. `goOn` is asked now and then, with the share that is done;
  /// false where it said no.
  template <typename F>
  bool Cut(const F& goOn) {
    std::vector<CutPolygon>& polygons = pieces_[0].polygons;
    for (size_t i = 0; i < polygons.size(); ++i) {
      if (i % kPlanesBetweenReports == kPlanesBetweenReports - 1 &&
          !goOn(static_cast<float>(i) / static_cast<float>(polygons.size())))
        return false;
      CutByOthers(i, polygons[i]);
    }
    pieces_[0].DropEmpty();
    return true;
  }

  /// Splits all pieces by a drawn plane and moves the halves apart by `separation` in all.
  void Shatter(double separation, trMersenneTwister& draws);

  /// Adds all pieces, `size` times as large, fanned into triangles. False where a table is full.
  bool AddTo(trScene& scene, double size, long material);

 private:
  static constexpr size_t kPlanesBetweenReports = 1000;

  struct Piece {
    std::vector<CutPlane> ownPlanes;  ///< those of shattering
    std::vector<CutPolygon> polygons;
    trVector translation;

    void DropEmpty();
    /// Gives corners that polygons share, but for rounding, one place.
    void WeldCorners();
  };

  void CutByOthers(size_t index, CutPolygon& polygon) const;
  void CutPiece(Piece& piece, const CutPlane& plane, trMersenneTwister& draws) const;

  std::vector<CutPlane> planes_;  ///< of all pieces
  std::vector<Piece> pieces_;
};
