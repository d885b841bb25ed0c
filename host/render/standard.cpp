// The light that the standard engine adds to what the camera sees.
#include "host/render/standard.h"

namespace ovhost {

StandardTracer::StandardTracer(World& world, const PathSettings& path, const IndirectSettings& indirect,
                               const TraceSettings& trace, LightCache& cache)
    : PathTracer(world, path),
      indirect_(world, path, indirect, cache),
      traced_(world, trace, indirect_, counters_) {}

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
