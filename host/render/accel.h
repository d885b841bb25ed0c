// Rays against diced surfaces, by Embree.
#pragma once

#include <memory>
#include <vector>

#include "host/render/grid_mesh.h"

namespace ovhost {

/// Where a ray met a surface.
struct SurfaceHit {
  const SurfacePart* part = nullptr;
  std::uint32_t primitive = 0;  ///< patch of a diced surface
  double u = 0, v = 0;          ///< within the patch, 0 to 1
  double distance = 0;          ///< along the unit direction, metres
  trVector faceNormal;          ///< of the micropolygon, outward, unit
};

/// Ray tracing over a set of meshes, which must outlive it. Points and origins are relative to the eye.
/// Queries are thread-safe.
class OV_API Accel {
 public:
  Accel();
  ~Accel();
  Accel(const Accel&) = delete;
  Accel& operator=(const Accel&) = delete;

  void Add(const GridMesh& mesh);
  /// Builds with the workers of the caller's arena. False with an error reported when Embree fails.
  bool Build();
  /// The nearest part that rays of a kind meet.
  bool Intersect(const trVector& origin, const trVector& direction, double nearest, double farthest,
                 SurfaceHit& hit, RayKind kind = kCameraRays) const;
  /// Whether anything that casts shadows stands between.
  bool Occluded(const trVector& origin, const trVector& direction, double nearest, double farthest) const;
  bool IsEmpty() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ovhost
