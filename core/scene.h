// Geometry on its way to the renderer: indexed triangles, materials, groups, particles, volumes.
//
// Tables are indexed from 1; 0 is the failure of an Add and the absence of an entry. A scene is filled on one
// thread; after PrepForRender it is read-only and many threads may read it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/render_state.h"
#include "core/transform.h"

class trScene;
class trSceneMaker;
class trParticleInflator;

struct trPoint {
  trVector position;  ///< object space
};
struct trNormal {
  trVector direction;
};
struct trTexVert {
  trVector uvw;
};

/// Three corners with the indices of what they have; 0 for no texture vertex or normal. The front of (a, b,
/// c) is the side that (c - a) x (b - a) points to. A pair of consecutive triangles (a, b, c), (a, c, d) is a
/// quad to the dicer.
struct trTri {
  std::int32_t point[3] = {0, 0, 0};
  std::int32_t texVert[3] = {0, 0, 0};
  std::int32_t normal[3] = {0, 0, 0};
  std::int32_t material = 0;
  std::int32_t part = -1;
  std::int32_t flags = 0;
};
static_assert(sizeof(trTri) == 48);

/// What covers a surface. The geometry shader makes the surface out of the mesh, the surface shader displaces
/// and colours it, the third is spare.
class OV_API trMaterial {
 public:
  trMaterial() = default;
  trMaterial(trGeometryShader* geometry, trShader* surface, trShader* extra, float displacementTolerance)
      : geometryShader(geometry),
        surfaceShader(surface),
        extraShader(extra),
        displacementTolerance(displacementTolerance) {}
  /// Displaces the state's sample by the geometry shader, then by the surface shader. 0 is a failure.
  long GeometryDisplace(trRenderState& state) const {
    return GeometryPlace(state) ? SurfaceDisplace(state) : 0;
  }
  /// The two steps of it.
  long GeometryPlace(trRenderState& state) const;
  long SurfaceDisplace(trRenderState& state) const;

  std::int32_t id = 0;
  trString name;
  trGeometryShader* geometryShader = nullptr;
  trShader* surfaceShader = nullptr;
  trShader* extraShader = nullptr;
  /// How much the surface is expected to move, relative to the planet's default; scales dicing margins.
  float displacementTolerance = 1.0f;
  /// Whether triangles are shaded with their own normals rather than flat.
  bool useNormals = true;
  /// Whether either side of a surface is shaded as the one that is seen; otherwise its normal stays outward.
  bool isDoubleSided = true;
  /// Whether the shadow line on triangles with normals is softened, so that it doesn't show their edges.
  bool smoothsTerminator = false;
};

class OV_API trGeomGroup {
 public:
  trGeomGroup(trString name, std::shared_ptr<trScene> scene)
      : name_(std::move(name)), scene_(std::move(scene)) {}
  const trString& Name() const { return name_; }
  const std::shared_ptr<trScene>& Subscene() const { return scene_; }
  bool CastsShadows() const;
  bool IsVisibleInReflections() const;
  bool IsVisibleOrHoldoutInRayTracer() const;

 private:
  trString name_;
  std::shared_ptr<trScene> scene_;
};

struct trParticle {
  trVector position;
  long index = 0;  ///< meaningful to the inflator
};

/// What the camera sees of a scene. A holdout hides what is behind it and leaves the picture empty there.
enum class trSceneVisibilityMode { kInvisible = 0, kVisible = 1, kHoldout = 2 };

/// Mixed into a scene maker that owns particles; tells what stands at each. Thread-safe. Boxes and transforms
/// lead to the object space of the scene that holds the particles, which for a populator is the world.
class OV_API trParticleInflator {
 public:
  virtual ~trParticleInflator() = default;
  virtual trBoundingBox InstanceBoundingBox(const trParticle& particle) const = 0;
  /// Makes the next element of a particle's instance: pushes its triangle, if any, to `state` and moves
  /// `cursor` on, which runs from 0 to the number of elements that the instance's scene sorted. 0 ends the
  /// instance.
  virtual long InflateInstanceElement(trRenderState& state, const trParticle& particle, long& cursor) = 0;
  /// Whether the ray in hand of `state` meets a particle's instance nearer than `distance` (in lengths of
  /// `direction`), which is then its distance.
  virtual bool IntersectInstance(trRenderState& state, const trParticle& particle, const trVector& origin,
                                 const trVector& direction, double& distance) = 0;
  virtual trFCol ParticleDiffuseTint(const trParticle&) const { return trFCol(1.0f); }
  virtual trFCol ParticleLuminosityTint(const trParticle&) const { return trFCol(1.0f); }
  virtual void ApplyTintToCd(const trParticle& particle, trFCol& colour) const {
    colour *= ParticleDiffuseTint(particle);
  }
  virtual void ApplyTintToSurfEmit(const trParticle& particle, trFCol& colour) const {
    colour *= ParticleLuminosityTint(particle);
  }
  /// Whether instances are nothing but their scenes, moved: the renderer then shares those between them.
  /// Otherwise it has every element inflated.
  virtual bool IsBasicInstancer() const { return false; }
  virtual long NumInstanceScenes() const { return 0; }
  virtual long InstanceSceneIndex(const trParticle&) const { return 0; }
  virtual std::shared_ptr<trScene> InstanceScene(long) const { return nullptr; }
  virtual trTransform<double> InstanceTransform(const trParticle&) const { return {}; }
  virtual trFCol InstancePreviewColour(const trParticle&) const { return trFCol(0.5f); }
  trVector SizeOfInstanceAlignedBoundingBox(const trParticle& particle) const {
    return InstanceBoundingBox(particle).Size();
  }
};

/// One entry of SortElements: a triangle or particle of the scene or of one of its groups.
struct trSortedElement {
  const trScene* scene = nullptr;  ///< whose table holds it
  long index = 0;
  bool isParticle = false;
  double depth = 0;  ///< of the centre along the sort direction
  double size = 0;   ///< minus the area, square metres; of a particle, that of three sides of its box
};

class OV_API trScene {
 public:
  trScene();
  ~trScene();
  trScene(const trScene&) = delete;
  trScene& operator=(const trScene&) = delete;

  // Life
  long Init();
  /// Ends filling: bounds and totals are settled, sub-scenes included.
  void PrepForRender();
  /// Lists the elements, those of groups included, by their depth along a direction of the world.
  void SortElements(const trVector& direction, bool includeParticles);

  // Tables
  long AddPoint(const trPoint& point);
  long AddNormal(const trNormal& normal);
  long AddTexVert(const trTexVert& texVert);
  /// Fails for a point that isn't there, or a texture vertex or normal that is neither there nor 0.
  long AddTri(const trTri& tri);
  long AddMaterial(const trMaterial& material);
  long AddParticle(const trParticle& particle);
  long AddAtmosphere(trShader* shader);
  /// Adds so many empty entries to each table, to be filled in before anything else is done with the scene:
  /// entries of a table lie one after another. 0, and nothing is added, where they don't fit.
  long Grow(long points, long normals, long texVerts, long tris);
  /// Makes room for so many more, for who knows what is coming.
  void Reserve(long points, long normals, long texVerts, long tris);

  // Reading
  long NumPts() const;
  long NumNormals() const;
  long NumTexVerts() const;
  long NumTris() const;
  long NumMaterials() const;
  long NumGroups() const;
  long NumParticles() const;
  long NumAtmospheres() const;
  trPoint* GetPPoint(long index);
  const trPoint* GetPPoint(long index) const;
  trNormal* GetPNormal(long index);
  const trNormal* GetPNormal(long index) const;
  trTexVert* GetPTexVert(long index);
  const trTexVert* GetPTexVert(long index) const;
  trTri* GetPTri(long index);
  const trTri* GetPTri(long index) const;
  trMaterial* GetPMaterial(long index);
  const trMaterial* GetPMaterial(long index) const;
  const trParticle* GetPParticle(long index) const;
  trShader* GetAtmosphere(long index) const;
  trGeomGroup* GetPGroup(long index) const;
  /// Fill up to `count` vectors from as many indices; the result tells how many were valid.
  long GetPointVecs(const std::int32_t* indices, trVector* out, long count) const;
  long GetNormals(const std::int32_t* indices, trVector* out, long count) const;
  long GetTexVecs(const std::int32_t* indices, trVector* out, long count) const;
  /// The material's index in the outermost scene's numbering, stable from frame to frame.
  long GetPersistentMaterialIndex(long index) const;

  // Groups: what is added or read by table between begin and end is the innermost open group's; groups
  // themselves are counted in the scene they were opened in. A group starts with the flags and transform of
  // its scene, and later changes of them carry over to it.
  long BeginGroup(const trString& name);
  long EndGroup();

  // Primitives, as triangles with their fronts outward. 0 is failure. A plane's front is the side that
  // `edgeA` x `edgeB` points to, and a disc's that of its axes.
  long AddPolyPlane(const trVector& corner, const trVector& edgeA, const trVector& edgeB, bool bothSides,
                    long material);
  long AddPolyDisc(const trVector& centre, const trVector& axisA, const trVector& axisB, long sides,
                   long material);
  long AddPolyCylinder(const trVector& base, const trVector& top, double radius, long sides, long material);
  /// An ellipsoid of `scale` about `centre`: six cube faces projected to the sphere, each cut in
  /// max(1, `resolutionV`) by max(1, `resolutionV`) quads that share their points; more than 4096 fails.
  /// (`resolutionU` counts quads round the equator; it is 8 for 4.)
  long AddPolySphere(const trVector& centre, const trVector& scale, long resolutionU, long resolutionV,
                     long material);
  long AddPolySphere(const trVector& centre, double radius, long resolution, long material);

  // Flags
  bool AllowsTriSubdivision() const;
  void SetAllowsTriSubdivision(bool allows);
  bool CastsShadows() const;
  void SetCastsShadows(bool casts);
  bool IsVisibleInReflections() const;
  void SetIsVisibleInReflections(bool visible);
  bool IsVisibleOrHoldout() const;
  trSceneVisibilityMode VisibilityMode() const;
  void SetVisibilityMode(trSceneVisibilityMode mode);
  long PrimaryRenderMethod() const;
  void SetPrimaryRenderMethod(long method);
  bool IsSorted() const;

  // Sorted elements, counted from the far end
  long NumSortedElements() const;
  const trSortedElement* GetSortedElementInfoReversed(long position) const;
  long TotalNumTrisAtPrep() const;

  // Transform (object to world) and bounds: BoundingBoxR in object space, BoundingBoxT in world space.
  const trTransform<double>& GetTransform() const;
  void SetTransform(const trTransform<double>& objectToWorld);
  /// The transform that shaders see as the object's own space. SetTransform sets it as well; a maker whose
  /// mesh is of another scale than its texture space says so afterwards.
  const trTransform<double>& GetTransformForShaders() const;
  void SetTransformForShaders(const trTransform<double>& objectToWorld);
  trBoundingBox BoundingBoxR() const;
  trBoundingBox BoundingBoxT() const;

  // Instancing
  void AssignParticleInflator(trParticleInflator* inflator);
  trParticleInflator* GetParticleInflator() const;

  /// Writes the maker's geometry through the object writer registered for the path's extension.
  long WriteObjectFile(trSceneMaker* maker, const char* path, long* status);

 private:
  struct Tables;
  std::unique_ptr<Tables> tables_;
};
