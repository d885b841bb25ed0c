// What rays meet: the parts that a frame's surfaces are made of. All that depends on what a surface is made
// of is an operation of its part.
#pragma once

#include <array>
#include <cstdint>

#include "core/scene.h"
#include "core/shading.h"
#include "host/render/parts/packed_normal.h"

namespace ovhost {

struct PartPlacement;
struct SurfaceHit;
struct SurfacePart;
struct SurfacePoint;

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

/// The line that met a part.
struct MeetingRay {
  trVector eye;                ///< world space
  trVector origin, direction;  ///< relative to the eye; unit
};

/// A piece of a part: what all samples that meet it may share the shading of.
struct SurfacePiece {
  const SurfacePart* part = nullptr;
  std::uint32_t primitive = 0,
                number = 0;  ///< `number` tells a primitive's pieces apart, whatever their size
  double u = 0, v = 0;       ///< its middle, within the primitive
};

/// A vertex near a point of a part, and how much it counts there.
struct NearVertex {
  trFVector point;  ///< relative to what the part's vertices are relative to
  PackedNormal normal;
  double weight;
};

/// The vertices of a part, for the ray tracer: corners of triangles, or grids of kPatchVertices after one
/// another.
struct TracedShape {
  const trFVector* vertices = nullptr;
  size_t vertexBytes = 0;  ///< from one vertex to the next
  size_t numVertices = 0;
  const std::array<std::uint32_t, 3>* triangles = nullptr;
  size_t numTriangles = 0, numGrids = 0;
};

/// Where a part comes from, and who meets it.
struct PartSource {
  bool isHoldout = false;  ///< hides what is behind it from the camera, and leaves the picture empty there
  unsigned rayKinds = kAllRays;
  int nodeId = 0;  ///< 1 + the number of the scene maker
  const trScene* scene = nullptr;
  const trGeomGroup* group = nullptr;  ///< the group whose scene that is, or null
  const trBase* node = nullptr;        ///< the scene maker
};

/// A piece of a scene's surface with vertices of one kind. The operations are thread-safe once it is made.
struct OV_API SurfacePart : PartSource {
  SurfacePart() = default;
  explicit SurfacePart(const PartSource& source) : PartSource(source) {}
  virtual ~SurfacePart() = default;

  bool isSeeThrough =
      false;               ///< shadow rays have to look at it: some of its points let light straight through
  bool mayBePlain = true;  ///< some of its points may be emission and diffuse reflection alone

  virtual TracedShape Shape() const = 0;
  /// Of its own buffers.
  virtual std::uint64_t Bytes() const = 0;
  virtual size_t NumPrimitives() const = 0;

  /// Fills in what a hit tells of its point; the footprint and the part itself are the caller's.
  virtual void Locate(const SurfaceHit& hit, const PartPlacement& placement, const MeetingRay& ray,
                      SurfacePoint& point) const = 0;
  /// Fills a shading state's points, normals, particle and terminator for a hit that was located.
  virtual void FillState(const SurfaceHit& hit, const PartPlacement& placement, const SurfacePoint& point,
                         trShadingInterface& si) const = 0;
  /// How fast the normals turn where it was met, radians a metre; 0 where that isn't known.
  virtual double Curvature(const SurfaceHit&) const { return 0; }

  /// Brings coordinates of 0 to 1 to where a primitive has them.
  virtual void MapToPrimitive(double& u, double& v) const;
  /// A point of a primitive, relative to what the vertices are relative to.
  virtual trVector PointAt(std::uint32_t primitive, double u, double v) const = 0;

  /// The piece under a camera ray's hit: as large as a pixel or so, seen from the eye. False where
  /// that isn't worth sharing. `pixelAngle` in radians.
  virtual bool PieceForCamera(const SurfaceHit& hit, double pixelAngle, SurfacePiece& piece) const {
    return false;
  }
  /// The piece under a bounce's hit, half the footprint's size to all of it. Returns the length of its side,
  /// metres; 0 where it isn't worth sharing.
  virtual double PieceForBounce(const SurfaceHit& hit, double footprint, SurfacePiece& piece) const {
    return 0;
  }
  /// The piece under the hit of a ray that mirrors or clear borders sent along `direction`: seen from there
  /// up to twice the footprint long. Returns the mean length of its sides, metres; 0 where it isn't worth
  /// sharing.
  virtual double PieceForCone(const SurfaceHit& hit, const trVector& direction, double footprint,
                              SurfacePiece& piece) const {
    return 0;
  }

  static constexpr int kMostNear = 4;
  /// The vertices round a hit, of those that lie up to `spacing` metres apart, as seen from the eye or as
  /// they are, and how much each counts there. Returns how many, at most kMostNear; 0 where the surface has
  /// none to keep light at.
  virtual int VerticesNear(const SurfaceHit& hit, double spacing, bool fromEye, NearVertex* found) const {
    return 0;
  }
};

/// The material of a triangle; an index that leads nowhere means the first. Null in a scene without
/// materials.
const trMaterial* MaterialOf(const trScene& scene, const trTri& tri);
/// The number under which the scene's tables have the material; 0 where they don't.
std::int32_t NumberOf(const trScene& scene, const trMaterial* material);

}  // namespace ovhost
