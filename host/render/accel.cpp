// Embree scenes; the vertex buffers are the meshes' own.
#include "host/render/accel.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "core/messages.h"

namespace ovhost {
namespace {

float ToRange(double distance) {
  return distance < std::numeric_limits<float>::max() ? static_cast<float>(distance)
                                                      : std::numeric_limits<float>::infinity();
}

RTCRay MakeRay(const trVector& origin, const trVector& direction, double nearest, double farthest,
               unsigned mask) {
  RTCRay ray{};
  ray.org_x = static_cast<float>(origin.x);
  ray.org_y = static_cast<float>(origin.y);
  ray.org_z = static_cast<float>(origin.z);
  ray.dir_x = static_cast<float>(direction.x);
  ray.dir_y = static_cast<float>(direction.y);
  ray.dir_z = static_cast<float>(direction.z);
  ray.tnear = static_cast<float>(nearest);
  ray.tfar = ToRange(farthest);
  ray.mask = mask;
  return ray;
}

/// Embree takes finite rays within single precision only.
bool CanBeTraced(const trVector& origin, const trVector& direction) {
  constexpr double kFarthest = 1e15;
  return std::fabs(origin.x) + std::fabs(origin.y) + std::fabs(origin.z) < kFarthest &&
         direction.LengthSquared() < kFarthest;
}

/// Embree's form of a bundle.
void FillRays(const RayBundle& bundle, double farthest, unsigned mask, int* valid, RTCRay16& rays) {
  constexpr int n = RayBundle::kSize;
  for (int i = 0; i < n; ++i) valid[i] = i < bundle.count ? bundle.valid[i] : 0;
  std::memcpy(rays.org_x, bundle.originX, sizeof(rays.org_x));
  std::memcpy(rays.org_y, bundle.originY, sizeof(rays.org_y));
  std::memcpy(rays.org_z, bundle.originZ, sizeof(rays.org_z));
  std::memcpy(rays.dir_x, bundle.directionX, sizeof(rays.dir_x));
  std::memcpy(rays.dir_y, bundle.directionY, sizeof(rays.dir_y));
  std::memcpy(rays.dir_z, bundle.directionZ, sizeof(rays.dir_z));
  std::memcpy(rays.tnear, bundle.nearest, sizeof(rays.tnear));
  std::fill_n(rays.time, n, 0.0f);
  std::fill_n(rays.tfar, n, ToRange(farthest));
  std::fill_n(rays.mask, n, mask);
  std::fill_n(rays.id, n, 0u);
  std::fill_n(rays.flags, n, 0u);
}

RTCIntersectContext CoherentContext() {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
  return context;
}

}  // namespace

void RayBundle::Add(const trVector& origin, const trVector& direction, double from) {
  const int i = count++;
  valid[i] = CanBeTraced(origin, direction) ? -1 : 0;
  originX[i] = static_cast<float>(origin.x);
  originY[i] = static_cast<float>(origin.y);
  originZ[i] = static_cast<float>(origin.z);
  directionX[i] = static_cast<float>(direction.x);
  directionY[i] = static_cast<float>(direction.y);
  directionZ[i] = static_cast<float>(direction.z);
  nearest[i] = static_cast<float>(from);
}

struct Accel::Impl {
  RTCDevice device = nullptr;
  RTCScene scene = nullptr;
  std::vector<const SurfacePart*> parts;

  void Attach(RTCGeometry geometry, const SurfacePart& part) {
    rtcSetGeometryMask(geometry, part.rayKinds);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(scene, geometry, static_cast<unsigned>(parts.size()));
    rtcReleaseGeometry(geometry);
    parts.push_back(&part);
  }
};

Accel::Accel() : impl_(std::make_unique<Impl>()) {
  impl_->device = rtcNewDevice("");
  if (!impl_->device) return;
  impl_->scene = rtcNewScene(impl_->device);
  rtcSetSceneFlags(impl_->scene, RTC_SCENE_FLAG_ROBUST);
  rtcSetSceneBuildQuality(impl_->scene, RTC_BUILD_QUALITY_MEDIUM);
}

Accel::~Accel() {
  if (impl_->scene) rtcReleaseScene(impl_->scene);
  if (impl_->device) rtcReleaseDevice(impl_->device);
}

void Accel::Add(const GridMesh& mesh) {
  if (!impl_->scene || mesh.patches.empty()) return;
  RTCGeometry geometry = rtcNewGeometry(impl_->device, RTC_GEOMETRY_TYPE_GRID);
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mesh.vertices.data(), 0,
                             sizeof(GridVertex), mesh.vertices.size());
  auto* grids = static_cast<RTCGrid*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_GRID, 0, RTC_FORMAT_GRID, sizeof(RTCGrid), mesh.patches.size()));
  if (grids)
    for (size_t i = 0; i < mesh.patches.size(); ++i)
      grids[i] = {static_cast<unsigned>(i * kPatchVertices), kPatchStride, kPatchStride, kPatchStride};
  impl_->Attach(geometry, mesh);
}

void Accel::Add(const TriMesh& mesh) {
  if (!impl_->scene || mesh.triangles.empty()) return;
  RTCGeometry geometry = rtcNewGeometry(impl_->device, RTC_GEOMETRY_TYPE_TRIANGLE);
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mesh.vertices.data(), 0,
                             sizeof(mesh.vertices[0]), mesh.vertices.size() - 1);
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mesh.triangles.data(), 0,
                             sizeof(mesh.triangles[0]), mesh.triangles.size());
  impl_->Attach(geometry, mesh);
}

bool Accel::Build() {
  if (!impl_->scene) {
    trError("The ray tracer could not be started.");
    return false;
  }
  rtcJoinCommitScene(impl_->scene);
  if (const RTCError error = rtcGetDeviceError(impl_->device); error != RTC_ERROR_NONE) {
    trError("The ray tracer could not be built (error " + std::to_string(error) + ").");
    return false;
  }
  return true;
}

bool Accel::IsEmpty() const { return impl_->parts.empty(); }

bool Accel::Intersect(const trVector& origin, const trVector& direction, double nearest, double farthest,
                      SurfaceHit& hit, RayKind kind) const {
  if (!CanBeTraced(origin, direction)) return false;
  RTCRayHit query{};
  query.ray = MakeRay(origin, direction, nearest, farthest, kind);
  query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  rtcIntersect1(impl_->scene, &context, &query);
  if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
  hit.part = impl_->parts[query.hit.geomID];
  hit.primitive = query.hit.primID;
  hit.u = query.hit.u;
  hit.v = query.hit.v;
  hit.distance = query.ray.tfar;
  hit.faceNormal = Normalised({query.hit.Ng_x, query.hit.Ng_y, query.hit.Ng_z});
  return true;
}

void Accel::Intersect(const RayBundle& rays, double farthest, SurfaceHit* hits) const {
  alignas(64) int valid[RayBundle::kSize];
  RTCRayHit16 query;
  FillRays(rays, farthest, kCameraRays, valid, query.ray);
  std::fill_n(query.hit.geomID, RayBundle::kSize, RTC_INVALID_GEOMETRY_ID);
  RTCIntersectContext context = CoherentContext();
  rtcIntersect16(valid, impl_->scene, &context, &query);
  for (int i = 0; i < rays.count; ++i) {
    SurfaceHit& hit = hits[i];
    if (!valid[i] || query.hit.geomID[i] == RTC_INVALID_GEOMETRY_ID) {
      hit.part = nullptr;
      continue;
    }
    hit.part = impl_->parts[query.hit.geomID[i]];
    hit.primitive = query.hit.primID[i];
    hit.u = query.hit.u[i];
    hit.v = query.hit.v[i];
    hit.distance = query.ray.tfar[i];
    hit.faceNormal = Normalised({query.hit.Ng_x[i], query.hit.Ng_y[i], query.hit.Ng_z[i]});
  }
}

std::uint32_t Accel::Occluded(const RayBundle& rays, double farthest) const {
  alignas(64) int valid[RayBundle::kSize];
  RTCRay16 query;
  FillRays(rays, farthest, kShadowRays, valid, query);
  RTCIntersectContext context = CoherentContext();
  rtcOccluded16(valid, impl_->scene, &context, &query);
  std::uint32_t occluded = 0;
  for (int i = 0; i < rays.count; ++i) occluded |= (valid[i] && query.tfar[i] < 0 ? 1u : 0u) << i;
  return occluded;
}

bool Accel::Occluded(const trVector& origin, const trVector& direction, double nearest,
                     double farthest) const {
  if (!CanBeTraced(origin, direction)) return false;
  RTCRay ray = MakeRay(origin, direction, nearest, farthest, kShadowRays);
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  rtcOccluded1(impl_->scene, &context, &ray);
  return ray.tfar < 0;
}

}  // namespace ovhost
