// Nodes that put geometry into the scene.
#pragma once

#include "core/preview.h"
#include "core/scene.h"

/// Base of all scene makers. Making happens on one thread, before rendering starts.
class OV_API trSceneMaker : public trBase {
 public:
  /// Why Make runs: 4 makes one object for instancing, 2 asks for nothing, 6 for what there is without
  /// populating.
  enum Context : int { kRender = 0, kNothing = 2, kInstance = 4, kWithoutPopulating = 6 };

  trSceneMaker();

  // --- Virtual operations, in slot order
  /// Fills the scene; 0 is failure.
  virtual long Make(trScene& scene, Context context);
  virtual unsigned char SupportsVariations() { return 0; }
  virtual long NumVariations() { return 1; }
  virtual long WriteObjectFile(const char* path, long* status);

  /// The variation to make, set by the caller of Make and 0 otherwise.
  long current_variation = 0;

 protected:
  /// Declares `visible` (to the camera), `visible_in_reflections` (to reflected, refracted and bounced rays),
  /// `cast_shadows` and `allow_subdivision`, with these defaults. They don't depend on one another: what
  /// isn't visible may still throw a shadow. What may not be subdivided shows displacement by its surface
  /// shader as bumps.
  void DeclareVisibilityParams(unsigned char visible, unsigned char inReflections, unsigned char castShadows,
                               unsigned char allowSubdivision);
  /// Declares `holdout`: hides what is behind it from the camera, and leaves the picture empty there.
  void DeclareAdvancedVisibilityParams();
  /// Copies the declared ones to the scene's flags; a maker that declares none leaves the scene as it is.
  void ApplyVisibilityParams(trScene& scene) const;
  bool AllowsSubdivision() const { return allowSubdivision_ != 0; }

 private:
  // As they are for makers that don't declare them.
  unsigned char visible_ = 1, visibleInReflections_ = 1, castShadows_ = 1, allowSubdivision_ = 1,
                holdout_ = 0;
};

class OV_API juSceneMaker : public trSceneMaker {
 public:
  /// Where to put a new object of this radius (metres): in front of the project's camera, or the world's
  /// origin without one; a planet-sized one so that the world's origin is its highest point.
  trVector RecommendedStartPosition(double radius) const;
  /// Composes scale, then rotation (degrees, X, Y, Z order), then position, and sets it on the scene when
  /// given. `box`, when given, gets the transformed bounds.
  static void SetTransformFromParams(trTransform<double>& transform, trScene* scene, trBoundingBox* box,
                                     const trVector& position, const trVector& rotation,
                                     const trVector& scale);

 protected:
  /// Declares `angular_heading`, `angular_elevation` (degrees) and `angular_distance` (metres): where the
  /// object stands seen from the world's origin. Heading 0 is north, +z, and 90 east, +x, as for sunlight.
  /// They are another way to set the position, which is what is saved.
  void DeclareAngularPositionParams();
  /// Keeps the angular position and the named position parameter in step after a change of either.
  void CoupleAngularPosition(long index, const char* positionParam);
  /// Declares `motion_file` and the button `import_motion`, which keys the position (and with
  /// `withTransform` the rotation) from a text file: a line a frame, of the frame, x y z in metres and
  /// rotation x y z in degrees, apart by blanks or commas; lines that begin with # are left out.
  void DeclareImportMotionFileParams(bool withTransform);
  /// Reads the motion file onto the named parameters; 0 with an error where it can't.
  long ImportMotion(const char* positionParam, const char* rotationParam);
  /// What the button does; a class that declares the group says which parameters it keys.
  virtual long OnImportMotion() { return 0; }

 private:
  class MotionButton : public trGuiPushButton {
   public:
    explicit MotionButton(juSceneMaker* maker) : trGuiPushButton(maker, "Import Motion"), maker_(maker) {}
    long OnPressed() override { return maker_->OnImportMotion(); }

   private:
    juSceneMaker* maker_;
  };

  double angularHeading_ = 0, angularElevation_ = 0, angularDistance_ = 0;
  bool hasAngularPosition_ = false, isCoupling_ = false, importsRotation_ = false;
  trFile motionFile_;
  MotionButton motionButton_{this};
};

/// A part of the scene with a surface of its own. Make runs PushPlanetParamsToChildren, MakePlanetSurface,
/// BindPlanetMaterials, MakeNonSurface in that order; a failing step fails it.
class OV_API juSubSceneMaker : public juSceneMaker {
 public:
  /// The names of the node's own parameters for its size, rotation and position; empty where there is none.
  juSubSceneMaker(const char* sizeParam, const char* rotationParam, const char* positionParam);

  long OnCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Make(trScene& scene, Context context) override;
  virtual long MakePlanetSurface(trScene& scene) = 0;
  virtual bool MakeNonSurface(trScene& scene);
  virtual void BindPlanetMaterials(trScene& scene);
  /// Carries the node's own parameters over to the nodes it drives. Also runs after every parameter change.
  virtual void PushPlanetParamsToChildren();

  const char* SizeParam() const { return size_; }
  const char* RotationParam() const { return rotation_; }
  const char* PositionParam() const { return position_; }

 protected:
  long OnImportMotion() override;

 private:
  const char *size_, *rotation_, *position_;
};

class OV_API juObjectGeneratorOrReader : public juSceneMaker, public juPreviewHandler {
 public:
  long Make(trScene& scene, Context context) override;
  virtual long GenerateOrRead(trScene& scene, Context context) = 0;
  virtual bool HasActiveMdd() { return false; }
  virtual bool HasActiveMeshDisplacer() { return meshDisplacer_.LinkedNode() != nullptr; }

 protected:
  /// Passes every point of the scene, sub-groups included, through the shader's displacement.
  void MovePointsWithMeshDisplacer(trScene& scene, bool recalculateNormals, trShader& shader);
  /// The standard tabs: `translate`, `rotate`, `scale`; `surface_shader`, `double-sided_surface`,
  /// `use_smooth_normals`, `smooth_polygons_at_terminator`, and `mesh_displacer` where the class hasn't
  /// declared it; the visibility parameters, where `allow_subdivision` on lets the renderer divide a mesh
  /// that its maker would rather keep whole; and `population_mode`, which a populator sets: the object is
  /// then made for it alone.
  void DeclareObjectTabs();
  /// Whether the object isn't to be made now, for a populator shows it.
  bool IsLeftToPopulator(Context context) const { return populationMode_ && context == kRender; }
  /// Begins the group of the mesh, under the object's transform; null where it can't.
  trScene* BeginMesh(trScene& scene);
  /// Ends it.
  void EndMesh(trScene& scene);
  /// What covers the mesh, by the parameters.
  trMaterial SurfaceMaterial() const;
  trShaderLink meshDisplacer_;
  trVector translate_, rotate_, scale_{1, 1, 1};

 private:
  // Objects that don't declare the tabs have the defaults all the same.
  unsigned char doubleSided_ = 1, useSmoothNormals_ = 1, smoothsTerminator_ = 1, populationMode_ = 0;
  trShaderLink surfaceShader_;
};

/// Objects made by code: GenerateOrRead opens a group and calls GenerateMesh.
class OV_API juObjectGenerator : public juObjectGeneratorOrReader {
 public:
  long GenerateOrRead(trScene& scene, Context context) override;
  virtual long GenerateMesh(trScene& scene, long materialIndex) = 0;

 protected:
  /// The standard tabs of a generator.
  void DeclareObjectGeneratorTabbedParams() { DeclareObjectTabs(); }
};

/// Objects read from a file. A material of the file is shaded by the reader's child of the material's name,
/// where there is one, and else by `surface_shader`.
class OV_API juObjectReader : public juObjectGeneratorOrReader {
 public:
  /// Opens a group and reads the file into it. A file that can't be read is an error; a render goes on
  /// without the object, whoever else asks gets 0.
  long GenerateOrRead(trScene& scene, Context context) override;
  /// Reads the file; materials are copies of `material` with the file's ids and names, and `reverse` turns
  /// the triangles round. 0 with an error where it can't, and without a word for an empty path.
  virtual long ReadObjectFile(trScene& scene, const char* path, const trMaterial& material, bool reverse) = 0;
  /// Reads the file at once; 0 where it can't be read.
  long LoadNow();

 protected:
  /// Declares `filename` and `reverse_triangles`, then the standard tabs.
  void DeclareObjectReaderTabbedParams();

  trFile sourceFile_;
  trLinkHint filenameHint_;

 private:
  void BindShadersByName(trScene& mesh) const;

  unsigned char reverse_ = 0;
};
