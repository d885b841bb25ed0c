// What rays meet of displaced meshes.
#include "host/render/parts/micro_mesh.h"

#include <algorithm>

#include "host/render/parts/displaced_point.h"

namespace ovhost {

std::uint64_t MicroMesh::Bytes() const { return TrianglePart::Bytes() + roots.size() * sizeof(roots[0]); }

void MicroMesh::Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
                       SurfacePoint& point) const {
  const auto& corners = triangles[hit.primitive];
  trVector points[3], normals[3];
  for (int k = 0; k < 3; ++k) {
    points[k] = vertices[corners[k]].point;
    normals[k] = vertices[corners[k]].normal.Unpack();
  }
  trVector normal = BlendCorners(normals, hit.u, hit.v);
  point.world = BlendCorners(points, hit.u, hit.v) + origin;
  if (const trTransform<double>* toWorld = placement.copyToWorld) {
    normal = toWorld->Normal(normal);
    point.world = toWorld->Point(point.world);
  }

  point.material = MaterialOf(*scene, *scene->GetPTri(sceneTris[hit.primitive]));
  point.relative = point.world - ray.eye;
  FinishPoint(hit, ray, normal, point);
}

void MicroMesh::FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                          trShadingInterface& si) const {
  const auto& corners = triangles[hit.primitive];
  trVector bases[3], baseNormals[3], textures[3], textureNormals[3];
  for (int k = 0; k < 3; ++k) {
    const MicroVertex& vertex = vertices[corners[k]];
    bases[k] = vertex.base;
    baseNormals[k] = vertex.baseNormal.Unpack();
    textures[k] = vertex.texture;
    textureNormals[k] = vertex.textureNormal.Unpack();
  }
  trVector base = BlendCorners(bases, hit.u, hit.v) + origin;
  trVector baseNormal = BlendCorners(baseNormals, hit.u, hit.v);
  trVector texture = BlendCorners(textures, hit.u, hit.v) + textureOrigin;
  trVector textureNormal = BlendCorners(textureNormals, hit.u, hit.v);
  // The texture point of the undisplaced surface: what the scene says, or the point itself.
  const trTri& root = *scene->GetPTri(sceneTris[hit.primitive]);
  trVector mapped[3], points[3];
  const bool isMapped = scene->GetTexVecs(root.texVert, mapped, 3) == 3;
  trVector baseTexture = base;
  if (isMapped) {
    scene->GetPointVecs(root.point, points, 3);
    const trTransform<double>& toWorld = scene->GetTransform();
    const tr2Vector b =
        Barycentric(toWorld.Direction(points[1] - points[0]), toWorld.Direction(points[2] - points[0]),
                    base - toWorld.Point(points[0]));
    baseTexture = BlendCorners(mapped, b.x, b.y);
  }
  if (const trTransform<double>* toWorld = placement.copyToWorld) {
    base = toWorld->Point(base);
    for (trVector* n : {&baseNormal, &textureNormal}) *n = toWorld->Normal(*n);
    if (!isMapped)
      for (trVector* p : {&texture, &baseTexture}) *p = toWorld->Point(*p);
  }
  si.SetSample(base, Normalised(baseNormal));
  si.Ptg() = baseTexture;
  SetDisplaced(point, texture, textureNormal, si);
}

double MicroMesh::Curvature(const SurfaceHit& hit) const {
  const auto& corners = triangles[hit.primitive];
  const MicroVertex &a = vertices[corners[0]], &b = vertices[corners[1]], &c = vertices[corners[2]];
  return std::max({TurnBetween(a, b), TurnBetween(b, c), TurnBetween(c, a)});
}

}  // namespace ovhost
