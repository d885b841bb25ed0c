// From a ray's hit to a shading state, the same for every engine.
#pragma once

#include "host/render/parts/surface_hit.h"

namespace ovhost {

/// Locates hits and fills shading states from them. Per-thread state.
class OV_API HitShading {
 public:
  explicit HitShading(const trView& view) : view_(view) {}

  /// Where a ray from `origin` (relative to the eye) met a surface; `footprintAngle` in radians.
  void Locate(const SurfaceHit& hit, const trVector& origin, const trVector& direction, double footprintAngle,
              SurfacePoint& point);
  /// Everything of the state that the sample says, ready for the surface shader: points, normals, footprint,
  /// eye and object, and what the ray in hand knows of the surface. Results are cleared.
  void FillState(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point,
                 trShadingInterface& si);
  /// Runs the surface's shader, if it has one, on a filled state. The back of a single-sided surface reflects
  /// nothing diffusely.
  static void RunShader(const SurfacePoint& point, trShadingInterface& si);

 private:
  /// Valid until the next call.
  PartPlacement PlacementOf(const SurfaceHit& hit);

  const trView& view_;
  /// The copy met last, with its transforms.
  SurfaceHit lastCopy_;
  trTransform<double> objectInCopy_, shaderInCopy_, copy_;
};

}  // namespace ovhost
