// Points of surfaces that were displaced before the render.
#pragma once

#include "core/render_state.h"
#include "host/render/parts/surface_hit.h"

namespace ovhost {

/// Fills in the rest of a point whose places are known, by its smoothed normal.
inline void FinishPoint(const SurfaceHit& hit, const MeetingRay& ray, const trVector& normal,
                        SurfacePoint& point) {
  point.face = TowardsRay(hit.faceNormal, ray.direction);
  point.normal = Normalised(normal);
  point.rayOffset = RayOffset(point.relative);
}

/// Moves a shading state from the undisplaced surface to the point, with what displacement left of the
/// texture point and its normal.
inline void SetDisplaced(const SurfacePoint& point, const trVector& texture, const trVector& textureNormal,
                         trShadingInterface& si) {
  si.P() = point.world;
  si.Pt() = texture;
  si.N() = si.Ni() = point.normal;
  si.Nt() = Normalised(textureNormal);
  si.RenderState().TerminatorInfo() = {};
}

}  // namespace ovhost
