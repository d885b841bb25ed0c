// The light that the standard engine adds to what the camera sees.
#include "host/render/engine/standard.h"

namespace ovhost {
namespace {

PathSettings BySamplesAlone(PathSettings settings) {
  settings.followsMatter = false;
  return settings;
}

}  // namespace

StandardTracer::StandardTracer(LitScene& scene, const PathSettings& path, const IndirectSettings& indirect,
                               const TraceSettings& trace, LightCache& cache)
    : PathTracer(scene, BySamplesAlone(path)),
      indirect_(scene, path, indirect, cache),
      traced_(scene, trace, indirect_, counters_) {}

void StandardTracer::Follow(Path& path) {
  const Surface& surface = path.surface;
  if (surface.diffuse.IsBlack()) return;
  AddIndirect(path, path.throughput * surface.diffuse *
                        indirect_.At(path.hit, surface, surface.normal, true, nullptr, path.sampler));
}

void StandardTracer::FollowLobes(Path& path, int) {
  TracedLight::Start start;
  start.sampler = path.sampler;
  start.random = path.random;
  start.origin = path.origin;
  start.direction = path.direction;
  start.hit = path.hit;
  start.throughput = path.throughput;
  traced_.Follow(start, path.result);
}

}  // namespace ovhost
