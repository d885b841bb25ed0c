// What volumes see of everything else, when they gather light for themselves.
#pragma once

#include "core/voxel.h"
#include "host/render/parts/surface_hit.h"

namespace ovhost {

class LitScene;

/// Radiance that arrives at points of the air: the sky without suns' discs, and surfaces as a diffuse bounce
/// sees them. Sky light comes from tables that know no volume without symmetry, since changes by place are
/// worked out from what volumes look like, which in turn may ask here. Thread-safe, each thread with its own
/// state, which comes back as it was with its draws; only the first call by a state allocates.
class OV_API BackgroundLight final : public trVoxelLightingSystem {
 public:
  explicit BackgroundLight(LitScene& scene) : scene_(scene) {}

  /// Hangs on the point and the direction alone. The thread counts as filling a cell meanwhile, so that
  /// volumes that show leave out what they would look up in turn.
  trFCol BackgroundFunction(trRenderState& state, const trVector& point, const trVector& direction) override;
  /// What a surface sends back along a ray from `origin` (relative to the eye), without the air between: by
  /// its diffuse lobes and emission. Sky light is as the state's ray in hand has it, which stays.
  trFCol OfSurface(trRenderState& state, const SurfaceHit& hit, const trVector& origin,
                   const trVector& direction);

 private:
  struct OwnShading;
  LitScene& scene_;
};

}  // namespace ovhost
