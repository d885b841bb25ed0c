// What rays meet of triangles that stay as they are.
#include "host/render/parts/tri_mesh.h"

#include <algorithm>
#include <cmath>

#include "host/base/tangents.h"
#include "host/render/parts/surface_hit.h"
#include "host/render/parts/traced_corners.h"

namespace ovhost {
namespace {

/// The ray tracer leaves out what is farther away than this.
bool IsTraceable(const trFVector& p) {
  constexpr float kFarthest = 1e18f;
  return std::fabs(p.x) < kFarthest && std::fabs(p.y) < kFarthest && std::fabs(p.z) < kFarthest;
}

/// Step of the differences that make bumps, as a share of the filter footprint, which smooths what is finer.
constexpr double kBumpStep = 0.25;

double LargestComponent(const trVector& v) {
  return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
}

/// A triangle as its scene's tables tell it, in the scene's object space, with the tracer's order of corners.
struct SceneTriangle {
  const trTri tri;
  trVector points[3];

  SceneTriangle(const TriMesh& mesh, const SurfaceHit& hit)
      : tri(TracedCorners(*mesh.scene->GetPTri(mesh.SceneTri(hit.primitive)))) {
    mesh.scene->GetPointVecs(tri.point, points, 3);
  }
  trVector Normal() const { return Cross(points[1] - points[0], points[2] - points[0]); }
};

/// From a triangle to the surface that its normals tell of: the mean of the point's feet on the corners'
/// tangent planes, where it lies below them (Hanika, Hacking the Shadow Terminator, Ray Tracing Gems II,
/// 2021). `isBack` takes the other side.
trVector LiftOf(const SceneTriangle& triangle, const trVector* normals, const trTransform<double>& toWorld,
                const SurfaceHit& hit, const trVector& point, bool isBack) {
  const double shares[3] = {1 - hit.u - hit.v, hit.u, hit.v};
  trVector lift;
  for (int i = 0; i < 3; ++i) {
    const trVector normal = toWorld.Normal(normals[i]) * (isBack ? -1.0 : 1.0);
    const double height = Dot(point - toWorld.Point(triangle.points[i]), normal);
    if (height < 0) lift -= normal * (height * shares[i]);
  }
  return lift;
}

}  // namespace

void FillTriMesh(TriMesh& mesh, const std::vector<std::int32_t>& sceneTris, const trVector& origin) {
  const trScene& scene = *mesh.scene;
  const trTransform<double>& toWorld = scene.GetTransform();
  const auto numPoints = static_cast<std::uint32_t>(scene.NumPts());
  mesh.vertices.resize(size_t(numPoints) + 1);
  for (std::uint32_t i = 0; i < numPoints; ++i)
    mesh.vertices[i] = trFVector(toWorld.Point(scene.GetPPoint(i + 1)->position) - origin);

  mesh.triangles.reserve(sceneTris.size());
  bool isWhole = true;
  for (const std::int32_t index : sceneTris) {
    const trTri tri = TracedCorners(*scene.GetPTri(index));
    std::array<std::uint32_t, 3> triangle;
    for (int k = 0; k < 3; ++k) triangle[k] = static_cast<std::uint32_t>(tri.point[k] - 1);
    if (!std::all_of(triangle.begin(), triangle.end(),
                     [&](std::uint32_t k) { return k < numPoints && IsTraceable(mesh.vertices[k]); }))
      continue;
    mesh.triangles.push_back(triangle);
    mesh.sceneTris.push_back(index);
    isWhole &= index == static_cast<std::int32_t>(mesh.triangles.size());
  }
  if (isWhole) mesh.sceneTris = {};
}

void TriMesh::Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
                     SurfacePoint& point) const {
  const SceneTriangle triangle(*this, hit);
  const trTransform<double>& toWorld = *placement.objectToWorld;
  point.material = MaterialOf(*scene, triangle.tri);
  point.world = toWorld.Point(BlendCorners(triangle.points, hit.u, hit.v));
  point.relative = point.world - ray.eye;

  const trVector outward = toWorld.Normal(triangle.Normal());
  point.face = TowardsRay(outward, ray.direction);
  point.normal = outward;
  trVector normals[3];
  if (point.material && point.material->useNormals &&
      scene->GetNormals(triangle.tri.normal, normals, 3) == 3) {
    point.normal = toWorld.Normal(BlendCorners(normals, hit.u, hit.v));
    if (point.material->smoothsTerminator)
      point.lift = LiftOf(triangle, normals, toWorld, hit, point.world, Dot(point.face, outward) < 0);
  }

  // The corners are rounded as far as they are from the eye, and so is the place of a copy.
  double farthest = 0;
  for (const trVector& corner : triangle.points)
    farthest = std::fmax(farthest, LargestComponent(toWorld.Point(corner) - ray.eye));
  if (hit.levels > 0)
    for (const float x : hit.instances[0].Get().centre) farthest = std::fmax(farthest, std::fabs(x));
  point.rayOffset = std::fmax(RayOffset(point.relative), 4e-7 * farthest);
}

void TriMesh::FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                        trShadingInterface& si) const {
  const SceneTriangle triangle(*this, hit);
  trVector corners[3];
  const bool isMapped = scene->GetTexVecs(triangle.tri.texVert, corners, 3) == 3;
  const trVector texture = isMapped ? BlendCorners(corners, hit.u, hit.v) : point.world;
  const auto sampleAt = [&](const trVector& offset, const trVector& textureOffset) {
    si.SetSample(point.world + offset, point.normal);
    si.Pt() = si.Ptg() = texture + textureOffset;
  };
  sampleAt({}, {});
  if (particles) {
    si.Object().particleScene = particles;
    si.Object().particle = particles->GetPParticle(triangle.tri.part);
  }
  const bool isSmooth = point.normal != point.face && point.normal != -point.face;
  si.RenderState().TerminatorInfo() = {point.material && point.material->smoothsTerminator && isSmooth, 1.0f,
                                       Dot(point.face, point.normal) < 0 ? -point.face : point.face};
  if (!point.material || !MayDisplace(triangle.tri)) return;

  // Displacement can't move a triangle that stays whole. It moves the texture point, and the normal is that
  // of the surface that it would have made here.
  trShader& shader = *point.material->surfaceShader;
  shader.DisplaceTS(si);
  const trVector moved = si.P(), movedTexture = si.Pt(), movedTextureNormal = si.Nt();
  trVector normal = point.normal;
  if (moved != point.world) {
    trVector across, along;
    MakeTangents(point.normal, along, across);
    const double step = std::fmax(kBumpStep * point.footprint, 1e-10 * LargestComponent(point.world));
    const trTransform<double>& toWorld = *placement.objectToWorld;
    const trVector edge1 = toWorld.Direction(triangle.points[1] - triangle.points[0]),
                   edge2 = toWorld.Direction(triangle.points[2] - triangle.points[0]);
    const auto movedAt = [&](const trVector& offset) {
      const tr2Vector b = Barycentric(edge1, edge2, offset);
      sampleAt(offset, isMapped ? (corners[1] - corners[0]) * b.x + (corners[2] - corners[0]) * b.y : offset);
      shader.DisplaceTS(si);
      return si.P();
    };
    const trVector a = movedAt(across * step) - moved, b = movedAt(along * step) - moved;
    const trVector bumped = Normalised(Cross(a, b));
    if (bumped.LengthSquared() > 0.5) normal = bumped;
  }
  sampleAt({}, {});
  si.Pt() = movedTexture;
  si.Nt() = movedTextureNormal;
  si.N() = si.Ni() = normal;
}

}  // namespace ovhost
