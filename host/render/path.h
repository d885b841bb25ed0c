// The path engine: radiance along camera rays, by next-event estimation of the suns and diffuse bounces.
#pragma once

#include "host/render/film.h"
#include "host/render/sampler.h"
#include "host/render/world.h"

namespace ovhost {

/// Samples of a pixel, numbered from a multiple of this on, that share the integrals of the air in front of
/// them.
constexpr std::uint32_t kSamplesSharingAir = 8;

struct PathSettings {
  int maxBounces = 1;
  float clampIndirect = 1.5f;  ///< largest luminance an indirect path may add; 0 for no limit
};

struct PathCounters {
  std::uint64_t cameraRays = 0, shadowRays = 0, bounceRays = 0, volumeSamples = 0;
};

/// One thread's path tracer. Per-thread state.
class OV_API PathTracer {
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
  /// The air along a camera ray, taken over from an earlier sample of the pixel where that saw as far.
  trAtomicIntegrator::Result CameraAir(int x, int y, std::uint32_t index, const trVector& direction,
                                       double distance);
  trAtomicIntegrator::Result Air(const trVector& origin, const trVector& direction, double distance,
                                 int depth);

  World& world_;
  PathSettings settings_;
  trShadingInterface si_;
  trRenderState state_;
  trAtomicIntegrator integrator_;
  PathCounters counters_;

  struct SharedAir {
    double distance;
    trAtomicIntegrator::Result air;
  };
  std::array<SharedAir, kSamplesSharingAir> sharedAir_;
  int sharedCount_ = 0, sharedX_ = -1, sharedY_ = -1;
  std::uint32_t sharedGroup_ = 0;
};

}  // namespace ovhost
