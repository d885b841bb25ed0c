// What rays meet: the parts that a frame's surfaces are made of.
#pragma once

#include "core/scene.h"

namespace ovhost {

/// Kinds of rays, as bits. Every part says which of them may meet it.
enum RayKind : unsigned {
  kNoRays = 0,
  kCameraRays = 1,
  kShadowRays = 2,
  kIndirectRays = 4,  ///< reflected, refracted and diffusely bounced
  kAllRays = 7
};

/// The kinds of rays that meet a scene, by its flags. They are independent: what no camera sees may still
/// throw a shadow.
inline unsigned RayKindsOf(const trScene& scene) {
  return (scene.IsVisibleOrHoldout() ? kCameraRays : kNoRays) |
         (scene.CastsShadows() ? kShadowRays : kNoRays) |
         (scene.IsVisibleInReflections() ? kIndirectRays : kNoRays);
}

/// A piece of a scene's surface with vertices of one kind.
struct SurfacePart {
  enum class Kind : unsigned char { kGrid, kTriangles, kMicro };

  explicit SurfacePart(Kind kind) : kind(kind) {}

  Kind kind;
  bool isHoldout = false;  ///< hides what is behind it from the camera, and leaves the picture empty there
  bool isSeeThrough =
      false;               ///< shadow rays have to look at it: some of its points let light straight through
  bool mayBePlain = true;  ///< some of its points may be emission and diffuse reflection alone
  unsigned rayKinds = kAllRays;
  int nodeId = 0;  ///< 1 + the number of the scene maker
  const trScene* scene = nullptr;
  const trGeomGroup* group = nullptr;  ///< the group whose scene that is, or null
  const trBase* node = nullptr;        ///< the scene maker
};

/// The material of a triangle; an index that leads nowhere means the first. Null in a scene without
/// materials.
const trMaterial* MaterialOf(const trScene& scene, const trTri& tri);

}  // namespace ovhost
