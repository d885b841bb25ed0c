// The path engine: radiance along camera rays, by next-event estimation of the suns and diffuse bounces.
#pragma once

#include "host/render/air/air_shells.h"
#include "host/render/engine/light_walk.h"
#include "host/render/engine/matter_paths.h"
#include "host/render/shade/camera_sample.h"

namespace ovhost {

/// Samples of a pixel, numbered from a multiple of this on, that are traced together: they share the
/// integrals of the air in front of them.
constexpr std::uint32_t kSamplesTogether = RayBundle::kSize;
static_assert(kSamplesTogether == kPassSamples);

/// What makes samples of a picture's pixels, one for each thread. Per-thread state.
class OV_API PixelEngine {
 public:
  virtual ~PixelEngine() = default;
  /// Traces samples `begin` to `end` of a pixel of the full picture, at most kSamplesTogether, into
  /// `results`.
  virtual void SamplePixel(int x, int y, std::uint32_t begin, std::uint32_t end, CameraSample* results) = 0;
  virtual PathCounters Counters() const = 0;
};

/// One thread's path tracer. Per-thread state.
class OV_API PathTracer : public PixelEngine {
 public:
  PathTracer(LitScene& scene, const PathSettings& settings);

  void SamplePixel(int x, int y, std::uint32_t begin, std::uint32_t end, CameraSample* results) override;
  PathCounters Counters() const override { return counters_; }
  /// Radiance that a diffuse bounce brings, `nearest` metres on from `origin` (relative to the eye) along
  /// `direction`, as paths estimate it. Inside of a solid, `inside` is the border that suns have come
  /// through.
  trFCol Gather(const trVector& origin, const trVector& direction, double nearest,
                const PixelSampler& sampler, std::uint64_t random, const SurfacePart* inside);

  /// A shaded point.
  struct Surface : SurfacePoint {
    trFCol emission, diffuse;
    bool isPlain = true;  ///< emission and diffuse lobes are all there is
  };

 protected:
  /// A camera path on its way.
  struct Path {
    PixelSampler sampler;
    std::uint64_t random = 0;    ///< key of the evaluations' own draws
    trVector origin, direction;  ///< of the ray in hand, relative to the eye
    double nearest = 0;          ///< where that ray starts to count, metres
    trFCol throughput{1.0f};
    SurfaceHit hit;
    const SurfacePart* inside = nullptr;  ///< border of the solid that the path began in
    Surface surface;
    CameraSample result;
  };

  /// The rest of a path, from the surface that the camera sees.
  virtual void Follow(Path& path);
  /// Whether FollowLobes shades what the camera sees by itself, without having been shown how.
  virtual bool ShadesItself(const SurfaceHit&) const { return false; }
  /// Hands the path over where its surface isn't plain.
  virtual void FollowLobes(Path& path, int depth);
  void AddIndirect(Path& path, const trFCol& light) const;

  LitScene& scene_;
  PathSettings settings_;
  PathCounters counters_;

 private:
  /// Light that a sun would send along a path, and the ray that tells whether it does.
  struct SunRay {
    trVector origin, direction;
    double nearest;
    trFCol light;  ///< as reflected, before volumes and shadows
  };

  void StartPath(int x, int y, std::uint32_t index, Path& path) const;
  /// What comes of a path that was scattered in volumes' matter.
  void FollowMatter(Path& path, const Matter::Collision& collision);
  /// What the volumes let through of a sun to the surface of a camera ray.
  trFCol SunAtCamera(const SunLight& sun, const Path& path);
  /// The air and the surface before a camera ray. False where the path ends.
  bool ShadeCameraRay(Path& path);
  /// Direct light of all paths whose camera rays met a surface, by bundles of shadow rays.
  void LightCameraHits();
  /// The surface that a bounce meets. False where the path ends there.
  bool FollowRay(Path& path, int depth);
  /// Turns the path into a diffuse bounce; false where roulette or the surface ends it.
  bool Bounce(Path& path, int depth) const;

  void ShadeHit(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                double footprintAngle, bool isCamera, Surface& surface);
  /// Runs the surface's network at a hit.
  void RunShaders(const SurfaceHit& hit, const trVector& origin, bool isCamera, Surface& surface);
  bool TowardsSun(const Surface& surface, const SunLight& sun, const tr2Vector& draw, SunRay& ray) const;
  /// What of a sun's light that something stops comes through all the same.
  trFCol PastClear(const SunRay& ray);
  trFCol DirectLight(const Surface& surface, const tr2Vector& draw);
  /// The air along a camera ray, taken over from an earlier sample of the pixel where that saw the same.
  trAtomicIntegrator::Result CameraAir(const trVector& direction, double distance, CameraSample& result);

  ShadingContext shading_;
  PieceShading pieces_;
  AirShells shells_;
  Roulette roulette_;
  std::unique_ptr<MatterPaths> matter_;  ///< null where volumes are asked for their samples alone
  LightWalk walk_;

  struct SharedAir {
    double distance;
    trAtomicIntegrator::Result air;
    AirRecord record;
  };
  std::array<SharedAir, kSamplesTogether> sharedAir_;
  int sharedCount_ = 0;
  std::array<Path, kSamplesTogether> paths_;
  std::array<std::vector<DeepStep>, kSamplesTogether> steps_;  ///< of the paths' results
  int pathCount_ = 0;
  std::array<int, kSamplesTogether> lit_;  ///< numbers of the paths whose camera rays met a surface
  int litCount_ = 0;
  RayBundle bundle_;
  std::array<SurfaceHit, kSamplesTogether> hitsOfBundle_;
};

}  // namespace ovhost
