// The path engine: radiance along camera rays, by next-event estimation of the suns and diffuse bounces.
#pragma once

#include "host/render/film.h"
#include "host/render/hit_shading.h"
#include "host/render/sampler.h"
#include "host/render/world.h"

namespace ovhost {

/// Samples of a pixel, numbered from a multiple of this on, that share the integrals of the air in front of
/// them and the shading of a micropolygon.
constexpr std::uint32_t kSamplesSharing = 8;

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
  struct Surface : SurfacePoint {
    trFCol emission, diffuse, transmission;
  };

 private:
  /// Forgets what samples share, unless this one goes on with the last one's.
  void BeginSample(int x, int y, std::uint32_t index);
  void ShadeHit(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                double footprintAngle, bool isCamera, Surface& surface);
  /// Runs the surface's network at a hit.
  void RunShaders(const SurfaceHit& hit, const trVector& origin, Surface& surface);
  trFCol DirectLight(const Surface& surface, const tr2Vector& draw);
  /// The air along a camera ray, taken over from an earlier sample of the pixel where that saw as far.
  trAtomicIntegrator::Result CameraAir(const trVector& direction, double distance);
  trAtomicIntegrator::Result Air(const trVector& origin, const trVector& direction, double distance,
                                 int depth);

  World& world_;
  PathSettings settings_;
  HitShading hits_;
  trShadingInterface si_;
  trRenderState state_;
  trAtomicIntegrator integrator_;
  PathCounters counters_;

  struct SharedAir {
    double distance;
    trAtomicIntegrator::Result air;
  };
  /// The colours of a micropolygon that an earlier sample of the pixel met.
  struct ShadedCell {
    const SurfacePart* part;
    std::uint32_t patch;
    int cell;
    trFCol emission, diffuse, transmission;
  };
  bool TakeShadedCell(const ShadedCell& key, Surface& surface) const;

  std::array<SharedAir, kSamplesSharing> sharedAir_;
  std::array<ShadedCell, kSamplesSharing> shadedCells_;
  int sharedCount_ = 0, cellCount_ = 0, sharedX_ = -1, sharedY_ = -1;
  std::uint32_t sharedGroup_ = 0;
};

}  // namespace ovhost
