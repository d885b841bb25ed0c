// What surfaces receive besides the suns' light, for the standard engine: the sky, and what other surfaces
// send on.
#pragma once

#include "host/render/engine/path.h"
#include "host/render/shade/light_cache.h"

namespace ovhost {

struct IndirectSettings {
  int rays = 32;       ///< bounces that are averaged at a cached point
  double spacing = 4;  ///< between cached points, pixels

  bool operator==(const IndirectSettings&) const = default;
};

/// Surfaces that have vertices near (SurfacePart::VerticesNear) have their light worked out at vertices some
/// pixels apart, by bounces as the path engine follows them, and blended between (Ward, Rubinstein and Clear
/// 1988, on the surface's own grid); other surfaces follow a bounce of their own for each sample. Per-thread
/// state.
class OV_API IndirectLight {
 public:
  IndirectLight(LitScene& scene, const PathSettings& path, const IndirectSettings& settings,
                LightCache& cache);

  /// Radiance of a white surface at a point that a ray met, for the side of `normal`. What isn't `isSeen` by
  /// the camera itself is known more coarsely. `inside` is the border of the solid that the point lies in,
  /// and that suns have come through, or null.
  trFCol At(const SurfaceHit& hit, const SurfacePoint& point, const trVector& normal, bool isSeen,
            const SurfacePart* inside, PixelSampler& sampler);
  PathCounters Counters() const { return gatherer_.Counters(); }

 private:
  trFCol Blended(const NearVertex* vertices, int count, const trVector& normal, bool isOutside, int rays,
                 const SurfacePart* inside);
  CachedLight AtVertex(const trVector& point, const trVector& normal, int rays, std::uint64_t key,
                       const SurfacePart* inside);

  LitScene& scene_;
  IndirectSettings settings_;
  LightCache& cache_;
  PathTracer gatherer_;
  bool isDark_;  ///< no bounces, or no light in them
};

}  // namespace ovhost
