// Embree scenes; the vertex buffers are the meshes' own. A population is one geometry whose primitives are
// its copies: they cost their 56 bytes and their share of the hierarchy, and their rays go on in the
// prototype's scene.
#include "host/render/trace/ray_scene.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "core/messages.h"
#include "host/base/memory.h"

namespace ovhost {
namespace {

/// What is outside by rounding still counts as inside a copy's box, as a share of the distances involved.
constexpr double kBoxMargin = 1e-6;

/// The matrix times a vector, or its transpose times it.
void Multiply(const float* m, const float* v, float* out) {
  for (int i = 0; i < 3; ++i) out[i] = m[3 * i] * v[0] + m[3 * i + 1] * v[1] + m[3 * i + 2] * v[2];
}
void MultiplyTransposed(const float* m, const float* v, float* out) {
  for (int i = 0; i < 3; ++i) out[i] = m[i] * v[0] + m[3 + i] * v[1] + m[6 + i] * v[2];
}

/// The linear part that leads out of a copy.
trMatrix4x4<double> OuterFromLocal(const Instance& instance) {
  trMatrix4x4<double> inverse;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) inverse.m[i][j] = instance.localFromOuter[3 * i + j];
  return inverse.Inverse();
}

void InstanceBounds(const RTCBoundsFunctionArguments* args) {
  const auto& population = *static_cast<const Population*>(args->geometryUserPtr);
  const Instance& instance = population.instances[args->primID];
  const trBoundingBox& box = population.prototypes[instance.prototype]->box;
  const trMatrix4x4<double> out = OuterFromLocal(instance);
  const trVector centre = box.Centre(), half = box.Size() * 0.5;
  const trVector middle = out.Direction(centre);
  float lower[3], upper[3];
  for (int i = 0; i < 3; ++i) {
    const double reach =
        std::fabs(out.m[i][0]) * half.x + std::fabs(out.m[i][1]) * half.y + std::fabs(out.m[i][2]) * half.z;
    const double at = instance.centre[i] + middle[i];
    const double margin = kBoxMargin * (std::fabs(at) + std::fabs(instance.centre[i]) + reach);
    lower[i] = static_cast<float>(at - reach - margin);
    upper[i] = static_cast<float>(at + reach + margin);
  }
  *args->bounds_o = {lower[0], lower[1], lower[2], 0, upper[0], upper[1], upper[2], 0};
}

/// A lane of a query, moved into a copy. Distances along the ray stay what they are.
RTCRay LocalRay(const Instance& instance, RTCRayN* rays, unsigned count, unsigned lane) {
  const float from[3] = {RTCRayN_org_x(rays, count, lane) - instance.centre[0],
                         RTCRayN_org_y(rays, count, lane) - instance.centre[1],
                         RTCRayN_org_z(rays, count, lane) - instance.centre[2]};
  const float along[3] = {RTCRayN_dir_x(rays, count, lane), RTCRayN_dir_y(rays, count, lane),
                          RTCRayN_dir_z(rays, count, lane)};
  float origin[3], direction[3];
  Multiply(instance.localFromOuter, from, origin);
  Multiply(instance.localFromOuter, along, direction);
  RTCRay ray{};
  ray.org_x = origin[0];
  ray.org_y = origin[1];
  ray.org_z = origin[2];
  ray.dir_x = direction[0];
  ray.dir_y = direction[1];
  ray.dir_z = direction[2];
  ray.tnear = RTCRayN_tnear(rays, count, lane);
  ray.tfar = RTCRayN_tfar(rays, count, lane);
  ray.mask = RTCRayN_mask(rays, count, lane);
  ray.id = RTCRayN_id(rays, count, lane);
  return ray;
}

/// Goes down into a copy for as long as it lives.
class InsideInstance {
 public:
  InsideInstance(RayContext& context, const Population& population, unsigned instance) : context_(context) {
    context_.path[context_.level] = {&population, instance};
    context_.embree.instID[0] = static_cast<unsigned>(++context_.level);
  }
  ~InsideInstance() { context_.embree.instID[0] = static_cast<unsigned>(--context_.level); }

 private:
  RayContext& context_;
};

void IntersectInstance(const RTCIntersectFunctionNArguments* args) {
  const auto& population = *static_cast<const Population*>(args->geometryUserPtr);
  auto& context = *reinterpret_cast<RayContext*>(args->context);
  if (context.level >= kMaxInstanceLevels) return;
  const Instance& instance = population.instances[args->primID];
  const RayScene& scene = *population.prototypes[instance.prototype]->rays;
  RTCRayN* rays = RTCRayHitN_RayN(args->rayhit, args->N);
  RTCHitN* hits = RTCRayHitN_HitN(args->rayhit, args->N);
  const InsideInstance inside(context, population, args->primID);
  for (unsigned lane = 0; lane < args->N; ++lane) {
    if (args->valid[lane] != -1) continue;
    RTCRayHit local;
    local.ray = LocalRay(instance, rays, args->N, lane);
    local.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene.Handle(), &context.embree, &local);
    if (local.hit.geomID == RTC_INVALID_GEOMETRY_ID) continue;
    // A hit deeper down has noted itself.
    if (local.hit.instID[0] == static_cast<unsigned>(context.level)) {
      RayContext::Found& found = context.found[local.ray.id];
      found.scene = &scene;
      found.levels = context.level;
      std::copy_n(context.path, context.level, found.instances);
    }
    const float normal[3] = {local.hit.Ng_x, local.hit.Ng_y, local.hit.Ng_z};
    float outer[3];
    MultiplyTransposed(instance.localFromOuter, normal, outer);
    RTCRayN_tfar(rays, args->N, lane) = local.ray.tfar;
    RTCHitN_Ng_x(hits, args->N, lane) = outer[0];
    RTCHitN_Ng_y(hits, args->N, lane) = outer[1];
    RTCHitN_Ng_z(hits, args->N, lane) = outer[2];
    RTCHitN_u(hits, args->N, lane) = local.hit.u;
    RTCHitN_v(hits, args->N, lane) = local.hit.v;
    RTCHitN_primID(hits, args->N, lane) = local.hit.primID;
    RTCHitN_geomID(hits, args->N, lane) = local.hit.geomID;
    RTCHitN_instID(hits, args->N, lane, 0) = local.hit.instID[0];
  }
}

void OccludeByInstance(const RTCOccludedFunctionNArguments* args) {
  const auto& population = *static_cast<const Population*>(args->geometryUserPtr);
  auto& context = *reinterpret_cast<RayContext*>(args->context);
  if (context.level >= kMaxInstanceLevels) return;
  const Instance& instance = population.instances[args->primID];
  const RayScene& scene = *population.prototypes[instance.prototype]->rays;
  const InsideInstance inside(context, population, args->primID);
  for (unsigned lane = 0; lane < args->N; ++lane) {
    if (args->valid[lane] != -1) continue;
    RTCRay ray = LocalRay(instance, args->ray, args->N, lane);
    rtcOccluded1(scene.Handle(), &context.embree, &ray);
    if (ray.tfar < 0) RTCRayN_tfar(args->ray, args->N, lane) = -std::numeric_limits<float>::infinity();
  }
}

}  // namespace

// Hits differ in their last bits between instruction sets. AVX-512 would gain some 3 % of a render; without
// it the machines of a farm agree.
RayDevice::RayDevice(const std::atomic<bool>* stop) : stop_(stop), handle_(rtcNewDevice("max_isa=avx2")) {
  if (handle_) rtcSetDeviceErrorFunction(handle_, TakeError, this);
}

RayDevice::~RayDevice() {
  if (handle_) rtcReleaseDevice(handle_);
}

void RayDevice::TakeError(void* self, RTCError code, const char* text) {
  const auto& device = *static_cast<const RayDevice*>(self);
  const std::lock_guard<std::mutex> lock(device.mutex_);
  device.isOutOfMemory_ |= code == RTC_ERROR_OUT_OF_MEMORY;
  if (device.error_.empty())
    device.error_ = text && *text ? text : "error " + std::to_string(static_cast<int>(code));
}

bool RayDevice::Report() const {
  // Without a device it tells why there is none.
  if (!handle_) {
    if (rtcGetDeviceError(nullptr) == RTC_ERROR_OUT_OF_MEMORY || IsMemoryShort()) throw std::bad_alloc();
    trError("The ray tracer could not be started.");
    return false;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::string error = std::exchange(error_, {});
  if (std::exchange(isOutOfMemory_, false)) throw std::bad_alloc();
  if (IsStopped()) return false;
  if (!error.empty()) trError("The ray tracer could not be built: " + error + ".");
  return error.empty();
}

RayScene::RayScene(std::shared_ptr<const RayDevice> device)
    : device_(std::move(device)), scene_(rtcNewScene(device_->Handle())) {
  rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
  rtcSetSceneBuildQuality(scene_, RTC_BUILD_QUALITY_MEDIUM);
}

RayScene::~RayScene() { rtcReleaseScene(scene_); }

void RayScene::Commit() {
  rtcSetSceneProgressMonitorFunction(
      scene_, [](void* device, double) { return !static_cast<const RayDevice*>(device)->IsStopped(); },
      const_cast<RayDevice*>(device_.get()));
  rtcJoinCommitScene(scene_);
  rtcSetSceneProgressMonitorFunction(scene_, nullptr, nullptr);
}

void RayScene::Attach(RTCGeometry geometry, unsigned rayKinds, const SurfacePart* part) {
  rtcSetGeometryMask(geometry, rayKinds);
  rtcCommitGeometry(geometry);
  rtcAttachGeometryByID(scene_, geometry, static_cast<unsigned>(parts_.size()));
  rtcReleaseGeometry(geometry);
  parts_.push_back(part);
}

void RayScene::Add(const SurfacePart& part) {
  const TracedShape shape = part.Shape();
  if (shape.numGrids == 0 && shape.numTriangles == 0) return;
  RTCGeometry geometry =
      rtcNewGeometry(device_->Handle(), shape.numGrids ? RTC_GEOMETRY_TYPE_GRID : RTC_GEOMETRY_TYPE_TRIANGLE);
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, shape.vertices, 0,
                             shape.vertexBytes, shape.numVertices);
  if (shape.numGrids == 0) {
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, shape.triangles, 0,
                               sizeof(shape.triangles[0]), shape.numTriangles);
  } else if (auto* grids = static_cast<RTCGrid*>(rtcSetNewGeometryBuffer(
                 geometry, RTC_BUFFER_TYPE_GRID, 0, RTC_FORMAT_GRID, sizeof(RTCGrid), shape.numGrids))) {
    for (size_t i = 0; i < shape.numGrids; ++i)
      grids[i] = {static_cast<unsigned>(i * kPatchVertices), kPatchStride, kPatchStride, kPatchStride};
  }
  Attach(geometry, part.rayKinds, &part);
}

void RayScene::Add(const Population& population) {
  if (population.instances.empty()) return;
  RTCGeometry geometry = rtcNewGeometry(device_->Handle(), RTC_GEOMETRY_TYPE_USER);
  rtcSetGeometryUserPrimitiveCount(geometry, static_cast<unsigned>(population.instances.size()));
  rtcSetGeometryUserData(geometry, const_cast<Population*>(&population));
  rtcSetGeometryBoundsFunction(geometry, InstanceBounds, nullptr);
  rtcSetGeometryIntersectFunction(geometry, IntersectInstance);
  rtcSetGeometryOccludedFunction(geometry, OccludeByInstance);
  Attach(geometry, population.rayKinds, nullptr);
}

void RayScene::Add(const Assembly& parts) {
  parts.ForEachSurface([this](const SurfacePart& part) { Add(part); });
  for (const auto& population : parts.populations) Add(*population);
}

trBoundingBox RayScene::Box() const {
  RTCBounds bounds;
  rtcGetSceneBounds(scene_, &bounds);
  trBoundingBox box;
  if (bounds.lower_x > bounds.upper_x) return box;
  box.Union({bounds.lower_x, bounds.lower_y, bounds.lower_z});
  box.Union({bounds.upper_x, bounds.upper_y, bounds.upper_z});
  return box;
}

}  // namespace ovhost
