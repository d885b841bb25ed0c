// The path engine: radiance along camera rays, by next-event estimation of the suns and diffuse bounces.
#pragma once

#include "host/render/film.h"
#include "host/render/sampler.h"
#include "host/render/world.h"

namespace ovhost {

struct PathSettings {
  int maxBounces = 2;
  float clampIndirect = 10;  ///< largest luminance an indirect path may add; 0 for no limit
};

struct PathCounters {
  std::uint64_t cameraRays = 0, shadowRays = 0, bounceRays = 0, volumeSamples = 0;
};

/// One thread's path tracer. Per-thread state.
class PathTracer {
 public:
  PathTracer(World& world, const PathSettings& settings);
  ~PathTracer();

  /// Traces sample `index` of a pixel of the full picture.
  CameraSample Sample(int x, int y, std::uint32_t index);
  const PathCounters& Counters() const { return counters_; }

  /// A shaded point.
  struct Surface {
    trVector relative;  ///< relative to the eye
    trVector world;
    trVector normal;  ///< shading normal, on the ray's side of the face
    trVector face;    ///< face normal, on the ray's side
    trFCol emission, diffuse, transmission;
    double footprint = 0;
    const GridMesh* mesh = nullptr;
  };

 private:
  void ShadeHit(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                double footprintAngle, Surface& surface);
  trFCol DirectLight(const Surface& surface, const tr2Vector& draw);
  trAtomicIntegrator::Result Air(const trVector& origin, const trVector& direction, double distance,
                                 int depth);

  World& world_;
  PathSettings settings_;
  trShadingInterface si_;
  trRenderState state_;
  trAtomicIntegrator integrator_;
  PathCounters counters_;
};

}  // namespace ovhost
