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
  // ----------------------------------------------------------------------
  /// Fills the scene; 0 is failure.
  virtual long Make(trScene& scene, Context context);
  virtual unsigned char SupportsVariations() { return 0; }
  virtual long NumVariations() { return 1; }
  virtual long WriteObjectFile(const char* path, long* status);

  /// The variation to make, set by the caller of Make and 0 otherwise.
  long current_variation = 0;

 protected:
  /// Declares `visible`, `visible_in_reflections`, `cast_shadows` and `allow_subdivision`, with these
  /// defaults.
  void DeclareVisibilityParams(unsigned char visible, unsigned char inReflections, unsigned char castShadows,
                               unsigned char allowSubdivision);
  /// Declares `holdout`: present to rays and alpha, black in the picture.
  void DeclareAdvancedVisibilityParams();
  /// Copies the declared ones to the scene's flags.
  void ApplyVisibilityParams(trScene& scene) const;

 private:
  unsigned char visible_ = 1, visibleInReflections_ = 1, castShadows_ = 1, allowSubdivision_ = 1,
                holdout_ = 0;
};

class OV_API juSceneMaker : public trSceneMaker {
 public:
  /// Where to put a new object of this size: in front of the project's camera; for a planet-sized one below
  /// it, so that the world's origin lies on its surface.
  trVector RecommendedStartPosition(double radius) const;
  /// Composes scale, then rotation (degrees, X, Y, Z order), then position, and sets it on the scene when
  /// given. `box`, when given, gets the transformed bounds.
  static void SetTransformFromParams(trTransform<double>& transform, trScene* scene, trBoundingBox* box,
                                     const trVector& position, const trVector& rotation,
                                     const trVector& scale);

 protected:
  void DeclareAngularPositionParams();
  void DeclareImportMotionFileParams(bool withTransform);
};

/// A part of the scene with a surface of its own. Make runs PushPlanetParamsToChildren, MakePlanetSurface,
/// BindPlanetMaterials, MakeNonSurface in that order; a failing step fails it.
class OV_API juSubSceneMaker : public juSceneMaker {
 public:
  juSubSceneMaker(const char* sizeParam, const char* rotationParam, const char* positionParam);

  long Make(trScene& scene, Context context) override;
  virtual long MakePlanetSurface(trScene& scene) = 0;
  virtual bool MakeNonSurface(trScene& scene);
  virtual void BindPlanetMaterials(trScene& scene);
  virtual void PushPlanetParamsToChildren();

  const char* SizeParam() const { return size_; }
  const char* RotationParam() const { return rotation_; }
  const char* PositionParam() const { return position_; }

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
  trShaderLink meshDisplacer_;
};

/// Objects made by code: GenerateOrRead opens a group and calls GenerateMesh.
class OV_API juObjectGenerator : public juObjectGeneratorOrReader {
 public:
  long GenerateOrRead(trScene& scene, Context context) override;
  virtual long GenerateMesh(trScene& scene, long materialIndex) = 0;

 protected:
  /// The standard tabs of a generator: `surface_shader`, `mesh_displacer`, position, rotation and scale.
  void DeclareObjectGeneratorTabbedParams();

 private:
  trShaderLink surfaceShader_;
  trVector translate_, rotate_, scale_;
};

/// Objects read from a file.
class OV_API juObjectReader : public juObjectGeneratorOrReader {
 public:
  long GenerateOrRead(trScene& scene, Context context) override;
  virtual long ReadObjectFile(trScene& scene, const char* path) = 0;
  /// Reads the file at once; 0 where it can't be read.
  long LoadNow();

 protected:
  trFile sourceFile_;
};
