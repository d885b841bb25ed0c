// Running surface shaders, and shadow rays that need them.
#include "host/render/shade/shading_context.h"

#include "host/base/parallel.h"
#include "host/base/sampler.h"
#include "host/render/shade/lobes.h"

namespace ovhost {
namespace {

/// Clear surfaces that a shadow ray goes through at most.
constexpr int kMostSheets = 32;
/// Filter footprint of a shadow ray, as a share of the distance.
constexpr double kShadowFootprint = 0.005;
/// Light below this doesn't count.
constexpr float kLeastLight = 1e-4f;

}  // namespace

ShadingContext::ShadingContext(const LitScene& scene, trRenderServices& services)
    : state(services, si), hits(scene.View()), eye_(scene.View().eye) {
  si.SetFrame(static_cast<float>(scene.Frame().frame));
  si.SetMainView(&scene.View());
  si.SetThread(ThreadSlot());
  si.RootEye() = eye_;
}

void ShadingContext::Shade(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point) {
  hits.FillState(hit, origin, point, si);
  si.SetLightDepth(state.CurrentRay().depth);
  si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kCe |
              trShadingInterface::kCs | trShadingInterface::kOo);
  state.ShadeOutputs() = {};
  HitShading::RunShader(point, si);
}

void ShadingContext::ShadeForLight(const SurfaceHit& hit, const trVector& origin, const trVector& direction) {
  SurfacePoint point;
  hits.Locate(hit, origin, direction, kShadowFootprint, point);
  trRenderState::Ray& ray = state.CurrentRay();
  ray = trRenderState::Ray();
  ray.origin = origin + eye_;
  ray.end = point.world;
  ray.depth = 2;
  ray.highlights = false;
  si.Random() = {MixBits64(static_cast<std::uint64_t>(hit.primitive) << 32 | 1)};
  Shade(hit, origin, point);
}

ShadowRays::ShadowRays(LitScene& scene) : scene_(scene), shading_(scene, scene) {}

trFCol ShadowRays::Transmittance(const trVector& origin, const trVector& direction, double nearest,
                                 std::uint64_t& rays) {
  ++rays;
  if (!scene_.Rays().Occluded(origin, direction, nearest, scene_.FarDistance())) return trFCol(1.0f);
  return ThroughClear(origin, direction, nearest, rays);
}

trFCol ShadowRays::ThroughClear(const trVector& origin, const trVector& direction, double nearest,
                                std::uint64_t& rays) {
  if (!scene_.HasSeeThrough()) return {};
  trFCol left(1.0f);
  trVector from = origin;
  double start = nearest;
  for (int sheet = 0; sheet < kMostSheets; ++sheet) {
    SurfaceHit hit;
    ++rays;
    if (!scene_.Rays().Intersect(from, direction, start, scene_.FarDistance(), hit, kShadowRays)) return left;
    if (!hit.part->isSeeThrough) return {};
    shading_.ShadeForLight(hit, from, direction);
    left *= StraightThrough(shading_.si.Bsdf(), shading_.si.Oo_surf(), false);
    if (left.MaxChannel() < kLeastLight) return {};
    from = from + direction * hit.distance;
    start = RayOffset(from);
  }
  return {};
}

trFCol ShadowRays::AcrossBorder(const SurfaceHit& hit, const trVector& origin, const trVector& direction) {
  // Seen from outside, whence the light comes: a line that isn't bent would leave many a border too flatly to
  // get out at all.
  SurfaceHit outside = hit;
  outside.distance = 1;
  shading_.ShadeForLight(outside, origin + direction * (hit.distance + outside.distance), -direction);
  return StraightThrough(shading_.si.Bsdf(), shading_.si.Oo_surf(), true);
}

}  // namespace ovhost
