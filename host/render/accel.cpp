// Embree scenes of grid primitives; the vertex buffers are the meshes' own.
#include "host/render/accel.h"

#include <embree3/rtcore.h>

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

}  // namespace

struct Accel::Impl {
  RTCDevice device = nullptr;
  RTCScene scene = nullptr;
  std::vector<const SurfacePart*> parts;
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
  rtcSetGeometryMask(geometry, mesh.rayKinds);
  rtcCommitGeometry(geometry);
  rtcAttachGeometryByID(impl_->scene, geometry, static_cast<unsigned>(impl_->parts.size()));
  rtcReleaseGeometry(geometry);
  impl_->parts.push_back(&mesh);
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
