// Queries of the ray tracer.
#include "host/render/trace/accel.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "core/messages.h"
#include "host/render/trace/ray_scene.h"

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
  for (int i = 0; i < n; ++i) rays.id[i] = static_cast<unsigned>(i);
  std::fill_n(rays.flags, n, 0u);
  // Without instructions that are 16 lanes wide Embree looks at those that aren't valid too: proper rays of
  // no length.
  for (int i = 0; i < n; ++i) {
    if (valid[i]) continue;
    rays.org_x[i] = rays.org_y[i] = rays.org_z[i] = rays.dir_x[i] = rays.dir_y[i] = rays.tnear[i] = 0;
    rays.dir_z[i] = 1;
    rays.tfar[i] = -1;
  }
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
  explicit Impl(const std::atomic<bool>* stop) : device(std::make_shared<RayDevice>(stop)) {}

  std::shared_ptr<const RayDevice> device;
  std::unique_ptr<RayScene> scene;

  /// The part that was met, and the copies it is in.
  void Resolve(unsigned geometry, unsigned level, const RayContext::Found& found, SurfaceHit& hit) const {
    hit.levels = static_cast<int>(level);
    hit.part = (level > 0 ? found.scene : scene.get())->Part(geometry);
    std::copy_n(found.instances, hit.levels, hit.instances);
  }
};

Accel::Accel(const std::atomic<bool>* stop) : impl_(std::make_unique<Impl>(stop)) {
  if (impl_->device->Handle()) impl_->scene = std::make_unique<RayScene>(impl_->device);
}

Accel::~Accel() = default;

void Accel::Add(const SurfacePart& part) {
  if (impl_->scene) impl_->scene->Add(part);
}

void Accel::Add(const Assembly& parts) {
  if (impl_->scene) impl_->scene->Add(parts);
}

bool Accel::Build(Prototype& prototype) {
  if (!impl_->scene) return impl_->device->Report();
  auto scene = std::make_shared<RayScene>(impl_->device);
  scene->Add(prototype.parts);
  scene->Commit();
  prototype.box = scene->Box();
  prototype.rays = std::move(scene);
  return impl_->device->Report();
}

bool Accel::Build() {
  if (impl_->scene) impl_->scene->Commit();
  return impl_->device->Report();
}

bool Accel::IsEmpty() const { return !impl_->scene || impl_->scene->IsEmpty(); }

bool Accel::Intersect(const trVector& origin, const trVector& direction, double nearest, double farthest,
                      SurfaceHit& hit, RayKind kind) const {
  if (!CanBeTraced(origin, direction)) return false;
  RTCRayHit query{};
  query.ray = MakeRay(origin, direction, nearest, farthest, kind);
  query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  RayContext::Found found;
  RayContext context(&found);
  rtcIntersect1(impl_->scene->Handle(), &context.embree, &query);
  if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
  impl_->Resolve(query.hit.geomID, query.hit.instID[0], found, hit);
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
  RayContext::Found found[RayBundle::kSize];
  RayContext context(found);
  context.embree.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
  rtcIntersect16(valid, impl_->scene->Handle(), &context.embree, &query);
  for (int i = 0; i < rays.count; ++i) {
    SurfaceHit& hit = hits[i];
    if (!valid[i] || query.hit.geomID[i] == RTC_INVALID_GEOMETRY_ID) {
      hit.part = nullptr;
      continue;
    }
    impl_->Resolve(query.hit.geomID[i], query.hit.instID[0][i], found[i], hit);
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
  RayContext context(nullptr);
  context.embree.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
  rtcOccluded16(valid, impl_->scene->Handle(), &context.embree, &query);
  std::uint32_t occluded = 0;
  for (int i = 0; i < rays.count; ++i) occluded |= (valid[i] && query.tfar[i] < 0 ? 1u : 0u) << i;
  return occluded;
}

bool Accel::Occluded(const trVector& origin, const trVector& direction, double nearest,
                     double farthest) const {
  if (!CanBeTraced(origin, direction)) return false;
  RTCRay ray = MakeRay(origin, direction, nearest, farthest, kShadowRays);
  RayContext context(nullptr);
  rtcOccluded1(impl_->scene->Handle(), &context.embree, &ray);
  return ray.tfar < 0;
}

}  // namespace ovhost
