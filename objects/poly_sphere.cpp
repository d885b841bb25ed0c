// poly_sphere.
#include "objects/poly_sphere.h"

#include <algorithm>

#include "core/guarded.h"
#include "objects/mesh_budget.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

/// The ball's tables: rows of latitude from the south pole on, columns of longitude.
class BallFiller {
 public:
  BallFiller(trScene& scene, long columns, long rows, bool isMapped, long material)
      : scene_(scene), columns_(columns), rows_(rows), isMapped_(isMapped), material_(material) {}

  bool Fill() {
    firstPoint_ = scene_.NumPts() + 1;
    firstNormal_ = scene_.NumNormals() + 1;
    firstTexVert_ = scene_.NumTexVerts() + 1;
    if (!AddPoints() || (isMapped_ && !AddTexVerts())) return false;
    for (long row = 0; row < rows_; ++row)
      for (long column = 0; column < columns_; ++column)
        if (!AddCell(row, column)) return false;
    return true;
  }

 private:
  bool AddBallPoint(const trVector& direction) {
    return scene_.AddPoint({direction}) && scene_.AddNormal({direction});
  }
  bool AddPoints() {
    if (!AddBallPoint({0, -1, 0})) return false;
    for (long row = 1; row < rows_; ++row) {
      const double latitude = kPi * (static_cast<double>(row) / static_cast<double>(rows_) - 0.5);
      for (long column = 0; column < columns_; ++column) {
        const double longitude = 2 * kPi * static_cast<double>(column) / static_cast<double>(columns_);
        if (!AddBallPoint({std::cos(latitude) * std::cos(longitude), std::sin(latitude),
                           std::cos(latitude) * std::sin(longitude)}))
          return false;
      }
    }
    return AddBallPoint({0, 1, 0});
  }
  /// The seam has texture vertices of either side, and a pole one for each triangle, half way along.
  bool AddTexVerts() {
    for (long row = 0; row <= rows_; ++row)
      for (long column = 0; column <= columns_; ++column) {
        const double shift = row == 0 || row == rows_ ? 0.5 : 0;
        if (!scene_.AddTexVert({{(static_cast<double>(column) + shift) / static_cast<double>(columns_),
                                 static_cast<double>(row) / static_cast<double>(rows_), 0}}))
          return false;
      }
    return true;
  }

  struct Corner {
    long row, column;
  };
  /// Of the ball's points, from 0.
  long PointOf(const Corner& c) const {
    if (c.row == 0) return 0;
    const long before = 1 + (c.row - 1) * columns_;
    return c.row == rows_ ? before : before + c.column % columns_;
  }
  bool AddTriangle(const Corner& a, const Corner& b, const Corner& c) {
    trTri tri;
    const Corner corners[3] = {a, b, c};
    for (int i = 0; i < 3; ++i) {
      tri.point[i] = static_cast<std::int32_t>(firstPoint_ + PointOf(corners[i]));
      tri.normal[i] = static_cast<std::int32_t>(firstNormal_ + PointOf(corners[i]));
      if (isMapped_)
        tri.texVert[i] =
            static_cast<std::int32_t>(firstTexVert_ + corners[i].row * (columns_ + 1) + corners[i].column);
    }
    tri.material = static_cast<std::int32_t>(material_);
    return scene_.AddTri(tri) != 0;
  }
  bool AddCell(long row, long column) {
    const Corner southWest{row, column}, southEast{row, column + 1}, northEast{row + 1, column + 1},
        northWest{row + 1, column};
    if (row == 0) return AddTriangle(southWest, northEast, northWest);
    if (row == rows_ - 1) return AddTriangle(southWest, southEast, northWest);
    return AddTriangle(southWest, southEast, northEast) && AddTriangle(southWest, northEast, northWest);
  }

  trScene& scene_;
  const long columns_, rows_;
  const bool isMapped_;
  const long material_;
  long firstPoint_ = 0, firstNormal_ = 0, firstTexVert_ = 0;
};

}  // namespace

PolySphere::PolySphere() {
  GuiTab("Sphere", "sphere_tab");
  Param(divisionsX_, "divisions_x", 60)
      .About("Triangles round the equator, at least 3. More give a rounder outline close by.");
  Param(divisionsY_, "divisions_y", 30)
      .About(
          "Rows of triangles from pole to pole, at least 2. Half of the divisions round the equator keep "
          "them square.");
  Param(generateUVs_, "generate_UVs", 1)
      .About(
          "Gives the ball a map: u runs eastward from 0 to 1, v from the south pole to the north pole. Image "
          "maps need it.");
  GuiTab("Mesh Modifiers", "mesh_tab");
  Param(meshDisplacer_, "mesh_displacer", "")
      .About("Shader that moves the points of the mesh as it is made, once and for all cameras.");
  Param(recalculateNormals_, "recalculate_normals", 1)
      .About(
          "Makes the normals anew after displacing. Off keeps those of the ball, which hides small bumps.");
  DeclareObjectGeneratorTabbedParams();
}

long PolySphere::GenerateMesh(trScene& scene, long materialIndex) {
  scene.SetAllowsTriSubdivision(false);
  const long columns = std::max(divisionsX_, 3L), rows = std::max(divisionsY_, 2L);
  constexpr std::uint64_t kBytesPerCell =
      2 * sizeof(trTri) + sizeof(trPoint) + sizeof(trNormal) + sizeof(trTexVert);
  if (!FitsMeshBudget(*this, static_cast<double>(columns) * static_cast<double>(rows), "cells of a ball",
                      kBytesPerCell, 2))
    return 0;
  if (!BallFiller(scene, columns, rows, generateUVs_ != 0, materialIndex).Fill()) return 0;
  if (trShader* const displacer = LinkedShader(meshDisplacer_))
    MovePointsWithMeshDisplacer(scene, recalculateNormals_ != 0, *displacer);
  return 1;
}
