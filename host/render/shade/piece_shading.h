// Colours of diffuse surfaces by pieces, shaded once for all samples that meet a piece.
#pragma once

#include "host/render/shade/shade_cache.h"
#include "host/render/shade/shading_context.h"

namespace ovhost {

/// Looks up or shades the piece of a part that a ray meets, at the piece's middle. Per-thread state.
class OV_API PieceShading {
 public:
  /// How a ray sees a surface: from the eye, over the hemisphere, or by mirrors and clear borders.
  enum class Sight { kCamera, kBounce, kCone };

  /// `shading`, which outlives this, runs the shaders.
  PieceShading(const LitScene& scene, ShadingContext& shading) : scene_(scene), shading_(shading) {}

  /// The colours of the piece under the hit of a ray that was located; null where every sample is its own:
  /// the surface isn't diffuse alone, bends its normals, or has pieces as small as footprints. Valid until
  /// the next call.
  const ShadeCache::Entry* Find(const SurfaceHit& hit, const SurfacePoint& point, const trVector& direction,
                                Sight sight);

 private:
  void Shade(const SurfaceHit& hit, const SurfacePiece& piece, Sight sight, double footprint,
             ShadeCache::Entry& entry);

  const LitScene& scene_;
  ShadingContext& shading_;
  ShadeCache seen_{13}, bounced_{15}, mirrored_{15};
};

}  // namespace ovhost
