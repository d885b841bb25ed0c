// Paths through volumes that tell their matter: every scattering is followed.
#pragma once

#include "host/render/air/matter.h"
#include "host/render/engine/path_settings.h"
#include "host/render/shade/shading_context.h"

namespace ovhost {

/// Light of volumes with matter by unbiased paths: null collisions from scattering to scattering, however
/// many; suns asked at each of them; the sky, and surfaces as diffuse bounces see them, where a path leaves.
/// The other volumes' air counts between the eye and the first scattering, on the way from suns, and past the
/// last scattering; within the matter it doesn't. Per-thread state.
class OV_API MatterPaths {
 public:
  /// Scatterings of a path at most, unless told otherwise: none gets there that matters.
  static constexpr int kMostScatterings = 1 << 20;

  MatterPaths(LitScene& scene, PathCounters& counters);

  bool IsEmpty() const { return matter_.IsEmpty(); }
  const Matter& Volumes() const { return matter_; }
  /// Where a path along `direction` collides before `length` metres from a point of the world; `throughput`
  /// becomes what is left there, or of what gets through.
  bool Collide(trRenderState& state, const trVector& origin, const trVector& direction, double length,
               trFCol& throughput, Matter::Collision& collision) const {
    return matter_.Collide(state, {origin, direction, length}, throughput, collision);
  }
  /// An estimate of the light that `throughput` of what collided brings back, by the state's draws. Its ray
  /// in hand becomes another.
  trFCol Light(trRenderState& state, const Matter::Collision& first, const trVector& direction,
               trFCol throughput, int mostScatterings = kMostScatterings);
  /// An estimate of what all volumes let through of a sun to a point of the world.
  trFCol ThroughVolumes(trRenderState& state, const SunLight& sun, const trVector& point);

 private:
  trFCol FromSuns(trRenderState& state, const Matter::Collision& at, const trVector& direction);
  /// What there is beyond the volumes' matter; `hit` is null for the sky.
  trFCol FromBeyond(trRenderState& state, const trVector& origin, const trVector& direction,
                    const SurfaceHit* hit);

  LitScene& scene_;
  Matter matter_;
  PathCounters& counters_;
  ShadowRays shadows_;
};

}  // namespace ovhost
