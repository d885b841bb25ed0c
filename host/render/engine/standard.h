// The standard engine: suns with soft shadows, highlights, rays that surfaces trace to a limited depth, and
// indirect light from a cache. Clean pictures from few samples.
#pragma once

#include "host/render/engine/indirect_light.h"
#include "host/render/engine/path.h"
#include "host/render/engine/traced_light.h"

namespace ovhost {

/// One thread's standard engine. What the camera sees is shaded and lit as the path engine does it; the light
/// that comes after that isn't left to single paths. Per-thread state.
class OV_API StandardTracer final : public PathTracer {
 public:
  StandardTracer(LitScene& scene, const PathSettings& path, const IndirectSettings& indirect,
                 const TraceSettings& trace, LightCache& cache);

  PathCounters Counters() const override { return counters_ + indirect_.Counters(); }

 private:
  void Follow(Path& path) override;
  bool ShadesItself(const SurfaceHit& hit) const override { return !hit.part->mayBePlain; }
  void FollowLobes(Path& path, int depth) override;

  IndirectLight indirect_;
  TracedLight traced_;
};

}  // namespace ovhost
