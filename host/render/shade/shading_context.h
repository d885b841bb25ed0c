// A thread's means of running surface shaders at hits.
#pragma once

#include "host/render/shade/hit_shading.h"
#include "host/render/shade/lit_scene.h"

namespace ovhost {

/// A shading state with everything that stays the same through a render filled in. Per-thread state.
class OV_API ShadingContext {
 public:
  /// `services` answer the shaders; they and the world outlive the context.
  ShadingContext(const LitScene& scene, trRenderServices& services);

  /// Runs the surface's network for the state's current ray at a hit that was located: results lie in `si`
  /// and in the state's outputs.
  void Shade(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point);
  /// The same for a hit of a straight line that light comes along: what it lets through lies in `si`. The
  /// origin is relative to the eye.
  void ShadeForLight(const SurfaceHit& hit, const trVector& origin, const trVector& direction);

  trShadingInterface si;
  trRenderState state;
  HitShading hits;

 private:
  const trVector eye_;
};

/// What straight lines from point to point have left past surfaces and through the clear ones among them.
/// Per-thread state.
class OV_API ShadowRays {
 public:
  explicit ShadowRays(LitScene& scene);

  /// Transmittance from `origin` (relative to the eye) on to infinity. `rays` counts.
  trFCol Transmittance(const trVector& origin, const trVector& direction, double nearest,
                       std::uint64_t& rays);
  /// The same where something is known to be in the way.
  trFCol ThroughClear(const trVector& origin, const trVector& direction, double nearest, std::uint64_t& rays);
  /// Transmittance of the border of a solid that the line leaves at a hit, as if it weren't bent there.
  trFCol AcrossBorder(const SurfaceHit& hit, const trVector& origin, const trVector& direction);
  /// What of a light comes in a straight line to a point inside the solid that `border` bounds, as if it
  /// weren't bent there, past all that lies beyond. `attenuation(hit)` is what is left on the way from the
  /// border that was hit; `open` is the result where the line leaves through nothing. `rays` counts.
  template <typename Attenuation>
  trFCol ThroughBorder(const SurfacePart* border, const trVector& origin, const trVector& direction,
                       double nearest, std::uint64_t& rays, const trFCol& open,
                       const Attenuation& attenuation) {
    SurfaceHit hit;
    ++rays;
    if (!scene_.Rays().Intersect(origin, direction, nearest, scene_.FarDistance(), hit, kAllRays))
      return open;
    if (hit.part != border) return {};
    const trFCol across = AcrossBorder(hit, origin, direction) * attenuation(hit);
    if (across.IsBlack()) return {};
    const trVector beyond = origin + direction * hit.distance;
    return across * Transmittance(beyond, direction, RayOffset(beyond), rays);
  }

 private:
  LitScene& scene_;
  ShadingContext shading_;
};

}  // namespace ovhost
