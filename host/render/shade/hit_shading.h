// From a ray's hit to a shading state, the same for every engine.
#pragma once

#include "host/render/trace/accel.h"

namespace ovhost {

/// A point of a surface that a ray met.
struct SurfacePoint {
  trVector relative;  ///< relative to the eye, metres
  trVector world;
  trVector normal;       ///< shading normal, unit, as the surface has it: on either side of the face
  trVector face;         ///< normal of the face that was met, unit, on the ray's side
  double footprint = 0;  ///< filter footprint, metres
  double rayOffset = 0;  ///< how far off the face a ray starts so that it doesn't meet the face again
  /// From the point to the smooth surface that a flat triangle stands for, where its shadow line is softened:
  /// rays to lights start there. Zero otherwise.
  trVector lift;
  const SurfacePart* part = nullptr;
  const trMaterial* material = nullptr;  ///< null in a scene without materials
};

/// Far enough off a face, metres, that a ray doesn't meet it again: points relative to the eye have single
/// precision.
inline double RayOffset(const trVector& relative) {
  return 1e-4 + 4e-7 * (std::fabs(relative.x) + std::fabs(relative.y) + std::fabs(relative.z));
}

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
  /// How fast the normals of the micropolygon that was met turn, radians a metre; 0 for triangles that stay
  /// whole, and in copies.
  static double Curvature(const SurfaceHit& hit);
  /// Runs the surface's shader, if it has one, on a filled state. The back of a single-sided surface reflects
  /// nothing diffusely.
  static void RunShader(const SurfacePoint& point, trShadingInterface& si);

 private:
  void LocateOnGrid(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                    SurfacePoint& point);
  void LocateOnTriangle(const SurfaceHit& hit, const trVector& direction, SurfacePoint& point);
  void FillFromGrid(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si);
  void LocateOnMicro(const SurfaceHit& hit, const trVector& direction, SurfacePoint& point);
  void FillFromTriangle(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si);
  void FillFromMicro(const SurfaceHit& hit, const SurfacePoint& point, trShadingInterface& si);

  /// How the object space of a hit's scene, and that of the copy it is in, lie in the world.
  struct Frame {
    const trTransform<double>* objectToWorld = nullptr;
    const trTransform<double>* shaderToWorld = nullptr;  ///< object space as shaders know it
    const trTransform<double>* copyToWorld = nullptr;    ///< null outside of copies
  };
  /// Valid until the next call.
  Frame FrameOf(const SurfaceHit& hit);

  const trView& view_;
  /// The copy met last, with its transforms.
  SurfaceHit lastCopy_;
  trTransform<double> objectInCopy_, shaderInCopy_, copy_;
};

}  // namespace ovhost
