// Rays against surfaces, by Embree.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "host/render/parts/assembly.h"
#include "host/render/parts/surface_hit.h"

namespace ovhost {

/// Rays that start near one another and point much the same way, as those of a pixel: traced together they
/// cost less than half. Unit directions, origins relative to the eye.
struct OV_API RayBundle {
  static constexpr int kSize = 16;
  /// Takes a ray's place in the bundle; the caller adds no more than kSize.
  void Add(const trVector& origin, const trVector& direction, double nearest);
  void Clear() { count = 0; }

  alignas(64) float originX[kSize], originY[kSize], originZ[kSize];
  alignas(64) float directionX[kSize], directionY[kSize], directionZ[kSize], nearest[kSize];
  alignas(64) int valid[kSize];  ///< -1 for a ray that can be traced, else 0
  int count = 0;
};

/// Ray tracing over a set of parts, which must outlive it. Points and origins are relative to the eye.
/// Queries are thread-safe.
class OV_API Accel {
 public:
  /// Builds end soon, and are false, once `stop` is set; it must outlive this.
  explicit Accel(const std::atomic<bool>* stop = nullptr);
  ~Accel();
  Accel(const Accel&) = delete;
  Accel& operator=(const Accel&) = delete;

  void Add(const SurfacePart& part);
  /// The parts of an assembly, diced, and its populations, whose prototypes must be built.
  void Add(const Assembly& parts);
  /// Makes a prototype ready to be met, once its parts are diced. False with an error reported, or stopped.
  bool Build(Prototype& prototype);
  /// Builds with the workers of the caller's arena. False with an error reported when Embree fails, or
  /// stopped.
  bool Build();
  /// The nearest part that rays of a kind meet.
  bool Intersect(const trVector& origin, const trVector& direction, double nearest, double farthest,
                 SurfaceHit& hit, RayKind kind = kCameraRays) const;
  /// Traces a bundle of camera rays: `hits[i]` for each ray; its part is null where nothing was met.
  void Intersect(const RayBundle& rays, double farthest, SurfaceHit* hits) const;
  /// One bit a ray: set where anything that casts shadows stands between.
  std::uint32_t Occluded(const RayBundle& rays, double farthest) const;
  /// Whether anything that casts shadows stands between.
  bool Occluded(const trVector& origin, const trVector& direction, double nearest, double farthest) const;
  bool IsEmpty() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ovhost
