// Locating hits on diced surfaces, and the shading states they make.
#include "host/render/hit_shading.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Far enough off a micropolygon that a ray doesn't meet it again: single precision of points relative to the
/// eye.
double RayOffset(const trVector& relative) {
  return 1e-4 + 4e-7 * (std::fabs(relative.x) + std::fabs(relative.y) + std::fabs(relative.z));
}

/// The micropolygon of a patch that was met, and how much each of its vertices counts there.
struct GridCell {
  const GridVertex* corners[4];
  double weights[4];

  GridCell(const GridMesh& mesh, const SurfaceHit& hit) {
    const double column = std::clamp(hit.u, 0.0, 1.0) * kPatchSide,
                 row = std::clamp(hit.v, 0.0, 1.0) * kPatchSide;
    const int i = std::min(static_cast<int>(column), kPatchSide - 1),
              j = std::min(static_cast<int>(row), kPatchSide - 1);
    const double s = column - i, t = row - j;
    const GridVertex* first =
        &mesh.vertices[static_cast<size_t>(hit.primitive) * kPatchVertices + j * kPatchStride + i];
    const GridVertex* found[4] = {first, first + 1, first + kPatchStride, first + kPatchStride + 1};
    const double shares[4] = {(1 - s) * (1 - t), s * (1 - t), (1 - s) * t, s * t};
    std::copy(found, found + 4, corners);
    std::copy(shares, shares + 4, weights);
  }
};

const GridMesh& GridOf(const SurfaceHit& hit) { return static_cast<const GridMesh&>(*hit.part); }

}  // namespace

int CellOf(const SurfaceHit& hit) {
  const auto cell = [](double x) {
    return std::min(static_cast<int>(std::clamp(x, 0.0, 1.0) * kPatchSide), kPatchSide - 1);
  };
  return cell(hit.v) * kPatchStride + cell(hit.u);
}

void HitShading::Locate(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                        double footprintAngle, SurfacePoint& point) const {
  const GridMesh& mesh = GridOf(hit);
  const GridCell cell(mesh, hit);
  trVector normal;
  for (int k = 0; k < 4; ++k) normal += cell.corners[k]->normal.Unpack() * cell.weights[k];

  point.part = hit.part;
  point.material = mesh.material;
  point.relative = origin + direction * hit.distance;
  point.world = point.relative + view_.eye;
  point.face = Dot(hit.faceNormal, direction) <= 0 ? hit.faceNormal : -hit.faceNormal;
  point.normal = Normalised(normal);
  point.footprint = hit.distance * footprintAngle;
  point.rayOffset = RayOffset(point.relative);
}

void HitShading::FillState(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point,
                           trShadingInterface& si) const {
  const GridMesh& mesh = GridOf(hit);
  const Patch& patch = mesh.patches[hit.primitive];
  const GridCell cell(mesh, hit);
  trVector texture, textureNormal;
  for (int k = 0; k < 4; ++k) {
    texture += trVector(cell.corners[k]->texture) * cell.weights[k];
    textureNormal += cell.corners[k]->textureNormal.Unpack() * cell.weights[k];
  }

  // The undisplaced surface under the point.
  const trTransform<double>& transform = mesh.scene->GetTransform();
  const trVector base = transform.Point(
      mesh.BasePoint(patch.quad, patch.u0 + patch.size * hit.u, patch.v0 + patch.size * hit.v));
  si.SetSample(base, point.normal);
  if (mesh.material->geometryShader) mesh.material->geometryShader->DisplaceTS(si);

  si.Eye() = origin + view_.eye;
  si.Ph() = si.Pg();
  si.Ptg() = si.Pt();
  si.P() = point.world;
  si.Pt() = texture + patch.textureOrigin;
  si.N() = si.Ni() = point.normal;
  si.Nt() = Normalised(textureNormal);
  si.SmoothSize() = point.footprint;
  si.Object() = {&mesh.scene->GetTransformForShaders(), mesh.scene};
  si.ResetResults();
}

}  // namespace ovhost
