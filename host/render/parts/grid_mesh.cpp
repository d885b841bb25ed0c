// What rays meet of diced surfaces.
#include "host/render/parts/grid_mesh.h"

#include <cmath>

#include "host/render/parts/displaced_point.h"
#include "host/render/parts/grid_cell.h"

namespace ovhost {

trVector GridMesh::BasePoint(std::uint32_t quad, double u, double v) const {
  const trVector* c = &quadCorners[4 * quad];
  const trVector low = c[0] * (1 - u) + c[1] * u, high = c[3] * (1 - u) + c[2] * u;
  return low * (1 - v) + high * v;
}

TracedShape GridMesh::Shape() const {
  TracedShape shape;
  if (vertices.empty()) return shape;
  shape.vertices = &vertices[0].point;
  shape.vertexBytes = sizeof(GridVertex);
  shape.numVertices = vertices.size();
  shape.numGrids = patches.size();
  return shape;
}

std::uint64_t GridMesh::Bytes() const {
  return quadCorners.size() * sizeof(trVector) + patches.size() * sizeof(Patch) +
         vertices.size() * sizeof(GridVertex);
}

void GridMesh::Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
                      SurfacePoint& point) const {
  const GridCell cell(*this, hit.primitive, hit.u, hit.v);
  trVector normal;
  for (int k = 0; k < 4; ++k) normal += cell.corners[k]->normal.Unpack() * cell.weights[k];
  if (placement.copyToWorld) normal = placement.copyToWorld->Normal(normal);

  point.material = material;
  point.relative = ray.origin + ray.direction * hit.distance;
  point.world = point.relative + ray.eye;
  FinishPoint(hit, ray, normal, point);
}

void GridMesh::FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                         trShadingInterface& si) const {
  const Patch& patch = patches[hit.primitive];
  const GridCell cell(*this, hit.primitive, hit.u, hit.v);
  trVector texture, textureNormal;
  for (int k = 0; k < 4; ++k) {
    texture += trVector(cell.corners[k]->texture) * cell.weights[k];
    textureNormal += cell.corners[k]->textureNormal.Unpack() * cell.weights[k];
  }

  // The undisplaced surface under the point. Geometry shaders know their object where its maker put it, so
  // that of a copy is made there and moved.
  const trVector base = scene->GetTransform().Point(
      BasePoint(patch.quad, patch.u0 + patch.size * hit.u, patch.v0 + patch.size * hit.v));
  si.SetSample(base, point.normal);
  if (material->geometryShader) material->geometryShader->DisplaceTS(si);
  if (const trTransform<double>* toWorld = placement.copyToWorld) {
    for (trVector* p : {&si.Pg(), &si.Pt()}) *p = toWorld->Point(*p);
    si.Ng() = toWorld->Normal(si.Ng());
    texture = toWorld->Point(texture + patch.textureOrigin) - patch.textureOrigin;
    textureNormal = toWorld->Normal(textureNormal);
  }

  si.Ph() = si.Pg();
  si.Ptg() = si.Pt();
  SetDisplaced(point, texture + patch.textureOrigin, textureNormal, si);
}

double GridMesh::Curvature(const SurfaceHit& hit) const {
  const GridCell cell(*this, hit.primitive, hit.u, hit.v);
  return std::fmax(TurnBetween(*cell.corners[0], *cell.corners[3]),
                   TurnBetween(*cell.corners[1], *cell.corners[2]));
}

}  // namespace ovhost
