// Locating hits on diced surfaces and on triangles, and the shading states they make.
#include "host/render/shade/hit_shading.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Step of the differences that make bumps, as a share of the filter footprint, which smooths what is finer.
constexpr double kBumpStep = 0.25;

double LargestComponent(const trVector& v) {
  return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
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

/// A triangle as its scene's tables tell it, in the scene's object space.
struct Triangle {
  const trTri& tri;
  trVector points[3];

  Triangle(const TriMesh& mesh, const SurfaceHit& hit)
      : tri(*mesh.scene->GetPTri(mesh.SceneTri(hit.primitive))) {
    mesh.scene->GetPointVecs(tri.point, points, 3);
  }
  static trVector Blend(const trVector* corners, double u, double v) {
    return corners[0] * (1 - u - v) + corners[1] * u + corners[2] * v;
  }
  trVector Normal() const { return Cross(points[1] - points[0], points[2] - points[0]); }
};

/// Two unit vectors that make a right-handed frame with a unit vector (Duff et al. 2017).
void MakeFrame(const trVector& n, trVector& a, trVector& b) {
  const double sign = std::copysign(1.0, n.z), p = -1 / (sign + n.z), q = n.x * n.y * p;
  a = {1 + sign * n.x * n.x * p, sign * q, -sign * n.x};
  b = {q, sign + n.y * n.y * p, -n.y};
}

/// Barycentric coordinates of a vector in a triangle's plane: v = u edge1 + v edge2, as nearly as can be.
tr2Vector Barycentric(const trVector& edge1, const trVector& edge2, const trVector& vector) {
  const double a = edge1.LengthSquared(), b = Dot(edge1, edge2), c = edge2.LengthSquared();
  const double d = Dot(edge1, vector), e = Dot(edge2, vector), determinant = a * c - b * b;
  if (!(determinant > 0)) return {};
  return {(c * d - b * e) / determinant, (a * e - b * d) / determinant};
}

/// From a triangle to the surface that its normals tell of: the mean of the point's feet on the corners'
/// tangent planes, where it lies below them (Hanika, Hacking the Shadow Terminator, Ray Tracing Gems II,
/// 2021). `isBack` takes the other side.
trVector LiftOf(const Triangle& triangle, const trVector* normals, const trTransform<double>& toWorld,
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

const trMaterial* MaterialOf(const trScene& scene, const trTri& tri) {
  const trMaterial* material = scene.GetPMaterial(tri.material);
  return material ? material : scene.GetPMaterial(1);
}

HitShading::Frame HitShading::FrameOf(const SurfaceHit& hit) {
  const trScene& scene = *hit.part->scene;
  if (hit.levels == 0) return {&scene.GetTransform(), &scene.GetTransformForShaders(), nullptr};
  const auto isSameCopy = [&] {
    if (lastCopy_.part != hit.part || lastCopy_.levels != hit.levels) return false;
    for (int i = 0; i < hit.levels; ++i)
      if (lastCopy_.instances[i].population != hit.instances[i].population ||
          lastCopy_.instances[i].instance != hit.instances[i].instance)
        return false;
    return true;
  };
  if (!isSameCopy()) {
    lastCopy_ = hit;
    copy_ = {};
    for (int i = 0; i < hit.levels; ++i) {
      const InstanceRef& ref = hit.instances[i];
      copy_ = copy_ * OuterFromInstance(*ref.population, ref.population->instances[ref.instance]);
    }
    objectInCopy_ = copy_ * scene.GetTransform();
    shaderInCopy_ = copy_ * scene.GetTransformForShaders();
  }
  return {&objectInCopy_, &shaderInCopy_, &copy_};
}

void HitShading::Locate(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                        double footprintAngle, SurfacePoint& point) {
  point.part = hit.part;
  point.footprint = hit.distance * footprintAngle;
  point.lift = trVector();
  if (hit.part->kind == SurfacePart::Kind::kGrid)
    LocateOnGrid(hit, origin, direction, point);
  else if (hit.part->kind == SurfacePart::Kind::kMicro)
    LocateOnMicro(hit, direction, point);
  else
    LocateOnTriangle(hit, direction, point);
}

void HitShading::LocateOnGrid(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                              SurfacePoint& point) {
  const auto& mesh = static_cast<const GridMesh&>(*hit.part);
  const GridCell cell(mesh, hit);
  trVector normal;
  for (int k = 0; k < 4; ++k) normal += cell.corners[k]->normal.Unpack() * cell.weights[k];

  point.material = mesh.material;
  if (const Frame frame = FrameOf(hit); frame.copyToWorld) normal = frame.copyToWorld->Normal(normal);
  point.relative = origin + direction * hit.distance;
  point.world = point.relative + view_.eye;
  point.face = Dot(hit.faceNormal, direction) <= 0 ? hit.faceNormal : -hit.faceNormal;
  point.normal = Normalised(normal);
  point.rayOffset = RayOffset(point.relative);
}

void HitShading::LocateOnTriangle(const SurfaceHit& hit, const trVector& direction, SurfacePoint& point) {
  const auto& mesh = static_cast<const TriMesh&>(*hit.part);
  const Triangle triangle(mesh, hit);
  const trTransform<double>& toWorld = *FrameOf(hit).objectToWorld;
  point.material = MaterialOf(*mesh.scene, triangle.tri);
  point.world = toWorld.Point(Triangle::Blend(triangle.points, hit.u, hit.v));
  point.relative = point.world - view_.eye;

  const trVector outward = toWorld.Normal(triangle.Normal());
  point.face = Dot(outward, direction) <= 0 ? outward : -outward;
  point.normal = outward;
  trVector normals[3];
  if (point.material && point.material->useNormals &&
      mesh.scene->GetNormals(triangle.tri.normal, normals, 3) == 3) {
    point.normal = toWorld.Normal(Triangle::Blend(normals, hit.u, hit.v));
    if (point.material->smoothsTerminator)
      point.lift = LiftOf(triangle, normals, toWorld, hit, point.world, Dot(point.face, outward) < 0);
  }

  // The corners are rounded as far as they are from the eye, and so is the place of a copy.
  double farthest = 0;
  for (const trVector& corner : triangle.points)
    farthest = std::fmax(farthest, LargestComponent(toWorld.Point(corner) - view_.eye));
  if (hit.levels > 0) {
    const Instance& instance = hit.instances[0].population->instances[hit.instances[0].instance];
    for (const float x : instance.centre) farthest = std::fmax(farthest, std::fabs(x));
  }
  point.rayOffset = std::fmax(RayOffset(point.relative), 4e-7 * farthest);
}

void HitShading::LocateOnMicro(const SurfaceHit& hit, const trVector& direction, SurfacePoint& point) {
  const auto& mesh = static_cast<const MicroMesh&>(*hit.part);
  const auto& corners = mesh.triangles[hit.primitive];
  trVector points[3], normals[3];
  for (int k = 0; k < 3; ++k) {
    points[k] = mesh.vertices[corners[k]].point;
    normals[k] = mesh.vertices[corners[k]].normal.Unpack();
  }
  trVector normal = Triangle::Blend(normals, hit.u, hit.v);
  point.world = Triangle::Blend(points, hit.u, hit.v) + mesh.origin;
  if (const Frame frame = FrameOf(hit); frame.copyToWorld) {
    normal = frame.copyToWorld->Normal(normal);
    point.world = frame.copyToWorld->Point(point.world);
  }

  point.material = MaterialOf(*mesh.scene, *mesh.scene->GetPTri(mesh.sceneTris[hit.primitive]));
  point.relative = point.world - view_.eye;
  point.face = Dot(hit.faceNormal, direction) <= 0 ? hit.faceNormal : -hit.faceNormal;
  point.normal = Normalised(normal);
  point.rayOffset = RayOffset(point.relative);
}

double HitShading::Curvature(const SurfaceHit& hit) {
  if (hit.levels > 0) return 0;
  const auto between = [](const auto& a, const auto& b) {
    const double length = (trVector(a.point) - trVector(b.point)).Length();
    return length > 0 ? (a.normal.Unpack() - b.normal.Unpack()).Length() / length : 0;
  };
  if (hit.part->kind == SurfacePart::Kind::kGrid) {
    const GridCell cell(static_cast<const GridMesh&>(*hit.part), hit);
    return std::fmax(between(*cell.corners[0], *cell.corners[3]),
                     between(*cell.corners[1], *cell.corners[2]));
  }
  if (hit.part->kind != SurfacePart::Kind::kMicro) return 0;
  const auto& mesh = static_cast<const MicroMesh&>(*hit.part);
  const auto& corners = mesh.triangles[hit.primitive];
  const MicroVertex &a = mesh.vertices[corners[0]], &b = mesh.vertices[corners[1]],
                    &c = mesh.vertices[corners[2]];
  return std::max({between(a, b), between(b, c), between(c, a)});
}

void HitShading::FillState(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point,
                           trShadingInterface& si) {
  si.Eye() = origin + view_.eye;
  si.SmoothSize() = point.footprint;
  si.Object() = {FrameOf(hit).shaderToWorld, point.part->scene};
  if (hit.levels > 0) {
    const Population& population = *hit.instances[0].population;
    si.Object().particleScene = population.scene;
    si.Object().particle =
        population.scene->GetPParticle(population.instances[hit.instances[0].instance].particle);
  }
  trRenderState::Ray& ray = si.RenderState().CurrentRay();
  ray.groupCastsShadows = point.part->scene->CastsShadows();
  trVector across, along;
  MakeFrame(point.face, across, along);
  ray.corners[0] = point.world;
  ray.corners[1] = point.world + across * point.footprint;
  ray.corners[2] = point.world + along * point.footprint;

  if (point.part->kind == SurfacePart::Kind::kGrid)
    FillFromGrid(hit, point, si);
  else if (point.part->kind == SurfacePart::Kind::kMicro)
    FillFromMicro(hit, point, si);
  else
    FillFromTriangle(hit, point, si);
  si.ResetResults();
}

void HitShading::RunShader(const SurfacePoint& point, trShadingInterface& si) {
  if (!point.material || !point.material->surfaceShader) return;
  point.material->surfaceShader->ShadeTS(si);
  if (point.material->isDoubleSided || Dot(point.normal, point.face) >= 0) return;
  for (int i = 0; i < si.Bsdf().NumLobes(); ++i) {
    trLobe& lobe = si.Bsdf().Lobe(i);
    if (lobe.kind == trLobe::kDiffuseReflection) lobe.colour = trFCol();
  }
}

void HitShading::FillFromGrid(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si) {
  const auto& mesh = static_cast<const GridMesh&>(*hit.part);
  const Patch& patch = mesh.patches[hit.primitive];
  const GridCell cell(mesh, hit);
  trVector texture, textureNormal;
  for (int k = 0; k < 4; ++k) {
    texture += trVector(cell.corners[k]->texture) * cell.weights[k];
    textureNormal += cell.corners[k]->textureNormal.Unpack() * cell.weights[k];
  }

  // The undisplaced surface under the point. Geometry shaders know their object where its maker put it, so
  // that of a copy is made there and moved.
  const trTransform<double>& transform = mesh.scene->GetTransform();
  const trVector base = transform.Point(
      mesh.BasePoint(patch.quad, patch.u0 + patch.size * hit.u, patch.v0 + patch.size * hit.v));
  si.SetSample(base, point.normal);
  if (mesh.material->geometryShader) mesh.material->geometryShader->DisplaceTS(si);
  if (const Frame frame = FrameOf(hit); frame.copyToWorld) {
    for (trVector* p : {&si.Pg(), &si.Pt()}) *p = frame.copyToWorld->Point(*p);
    si.Ng() = frame.copyToWorld->Normal(si.Ng());
    texture = frame.copyToWorld->Point(texture + patch.textureOrigin) - patch.textureOrigin;
    textureNormal = frame.copyToWorld->Normal(textureNormal);
  }

  si.Ph() = si.Pg();
  si.Ptg() = si.Pt();
  si.P() = point.world;
  si.Pt() = texture + patch.textureOrigin;
  si.N() = si.Ni() = point.normal;
  si.Nt() = Normalised(textureNormal);
  si.RenderState().TerminatorInfo() = {};
}

void HitShading::FillFromMicro(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si) {
  const auto& mesh = static_cast<const MicroMesh&>(*hit.part);
  const auto& corners = mesh.triangles[hit.primitive];
  trVector bases[3], baseNormals[3], textures[3], textureNormals[3];
  for (int k = 0; k < 3; ++k) {
    const MicroVertex& vertex = mesh.vertices[corners[k]];
    bases[k] = vertex.base;
    baseNormals[k] = vertex.baseNormal.Unpack();
    textures[k] = vertex.texture;
    textureNormals[k] = vertex.textureNormal.Unpack();
  }
  trVector base = Triangle::Blend(bases, hit.u, hit.v) + mesh.origin;
  trVector baseNormal = Triangle::Blend(baseNormals, hit.u, hit.v);
  trVector texture = Triangle::Blend(textures, hit.u, hit.v) + mesh.textureOrigin;
  trVector textureNormal = Triangle::Blend(textureNormals, hit.u, hit.v);
  // The texture point of the undisplaced surface: what the scene says, or the point itself.
  const trTri& root = *mesh.scene->GetPTri(mesh.sceneTris[hit.primitive]);
  trVector mapped[3], points[3];
  const bool isMapped = mesh.scene->GetTexVecs(root.texVert, mapped, 3) == 3;
  trVector baseTexture = base;
  if (isMapped) {
    mesh.scene->GetPointVecs(root.point, points, 3);
    const trTransform<double>& toWorld = mesh.scene->GetTransform();
    const tr2Vector b =
        Barycentric(toWorld.Direction(points[1] - points[0]), toWorld.Direction(points[2] - points[0]),
                    base - toWorld.Point(points[0]));
    baseTexture = Triangle::Blend(mapped, b.x, b.y);
  }
  if (const Frame frame = FrameOf(hit); frame.copyToWorld) {
    base = frame.copyToWorld->Point(base);
    for (trVector* n : {&baseNormal, &textureNormal}) *n = frame.copyToWorld->Normal(*n);
    if (!isMapped)
      for (trVector* p : {&texture, &baseTexture}) *p = frame.copyToWorld->Point(*p);
  }
  si.SetSample(base, Normalised(baseNormal));
  si.Ptg() = baseTexture;
  si.P() = point.world;
  si.Pt() = texture;
  si.N() = si.Ni() = point.normal;
  si.Nt() = Normalised(textureNormal);
  si.RenderState().TerminatorInfo() = {};
}

void HitShading::FillFromTriangle(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si) {
  const auto& mesh = static_cast<const TriMesh&>(*hit.part);
  const Triangle triangle(mesh, hit);
  trVector corners[3];
  const bool isMapped = mesh.scene->GetTexVecs(triangle.tri.texVert, corners, 3) == 3;
  const trVector texture = isMapped ? Triangle::Blend(corners, hit.u, hit.v) : point.world;
  const auto sampleAt = [&](const trVector& offset, const trVector& textureOffset) {
    si.SetSample(point.world + offset, point.normal);
    si.Pt() = si.Ptg() = texture + textureOffset;
  };
  sampleAt({}, {});
  if (mesh.particles) {
    si.Object().particleScene = mesh.particles;
    si.Object().particle = mesh.particles->GetPParticle(triangle.tri.part);
  }
  const bool isSmooth = point.normal != point.face && point.normal != -point.face;
  si.RenderState().TerminatorInfo() = {point.material && point.material->smoothsTerminator && isSmooth, 1.0f,
                                       Dot(point.face, point.normal) < 0 ? -point.face : point.face};
  if (!point.material || !mesh.MayDisplace(triangle.tri)) return;

  // Displacement can't move a triangle that stays whole. It moves the texture point, and the normal is that
  // of the surface that it would have made here.
  trShader& shader = *point.material->surfaceShader;
  shader.DisplaceTS(si);
  const trVector moved = si.P(), movedTexture = si.Pt(), movedTextureNormal = si.Nt();
  trVector normal = point.normal;
  if (moved != point.world) {
    trVector across, along;
    MakeFrame(point.normal, across, along);
    const double step = std::fmax(kBumpStep * point.footprint, 1e-10 * LargestComponent(point.world));
    const trTransform<double>& toWorld = *FrameOf(hit).objectToWorld;
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
