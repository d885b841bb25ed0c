// Where rays meet parts.
#pragma once

#include <cmath>

#include "core/transform.h"
#include "host/render/parts/population.h"
#include "host/render/parts/surface_part.h"

namespace ovhost {

/// A copy that a ray is inside of.
struct InstanceRef {
  const Population* population = nullptr;
  std::uint32_t instance = 0;

  const Instance& Get() const { return population->instances[instance]; }
};

/// Where a ray met a surface.
struct SurfaceHit {
  const SurfacePart* part = nullptr;
  std::uint32_t primitive = 0;  ///< patch of a diced surface, or triangle of a mesh
  double u = 0, v = 0;          ///< within the patch, 0 to 1, or barycentric in the triangle
  double distance = 0;          ///< along the unit direction, metres
  trVector faceNormal;          ///< of the micropolygon or triangle, outward, unit
  int levels = 0;               ///< how many copies the part is inside of, outermost first
  InstanceRef instances[kMaxInstanceLevels];

  bool IsHoldout() const { return part->isHoldout || (levels > 0 && instances[0].population->isHoldout); }
  int NodeId() const { return levels > 0 ? instances[0].population->nodeId : part->nodeId; }
  /// How fast the surface's normals turn, radians a metre; 0 where that isn't known, as in copies.
  double Curvature() const { return levels > 0 ? 0 : part->Curvature(*this); }
};

/// How the object space of a part's scene, and that of the copy it is in, lie in the world.
struct PartPlacement {
  const trTransform<double>* objectToWorld = nullptr;
  const trTransform<double>* shaderToWorld = nullptr;  ///< object space as shaders know it
  const trTransform<double>* copyToWorld = nullptr;    ///< null outside of copies
};

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

/// A normal, turned to the side that a ray came from.
inline trVector TowardsRay(const trVector& normal, const trVector& direction) {
  return Dot(normal, direction) <= 0 ? normal : -normal;
}

/// A shading normal on the side of the face, which stands in where there is none.
inline trVector TowardsFace(const trVector& normal, const trVector& face) {
  const trVector& used = normal.LengthSquared() > 0.5 ? normal : face;
  return Dot(used, face) < 0 ? -used : used;
}

}  // namespace ovhost
