// cube and octahedron: plain solids whose surface shaders may displace them.
#pragma once

#include "core/scene_maker.h"

/// What they share. A hidden geometry shader rounds their edges.
class PrimitiveObject : public juSubSceneMaker, public juPreviewHandler {
 public:
  explicit PrimitiveObject(const char* geometryClass);
  ~PrimitiveObject() override;

  long OnCreate() override;
  long OnFirstCreate() override;
  trPreviewHandler* PreviewHandler() override { return this; }

  long MakePlanetSurface(trScene& scene) override;
  void BindPlanetMaterials(trScene& scene) override;
  void PushPlanetParamsToChildren() override;

  unsigned char IsPreviewEnabled() override { return showBox_; }
  trBoundingBox BoundingBoxL() override;
  trVector HandlePositionL() override { return {}; }
  trTransform<double> Transform() override;
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;
  void MoveHandleScaleT(const trVector& factor) override;
  trVector HandleRotation() override { return rotate_; }
  trVector HandleScale() override { return scale_; }

 protected:
  /// Half of the solid's extent along each axis, before `scale`.
  virtual trVector HalfSize() const = 0;
  /// The faces, as quads about the origin. False where one can't be made.
  virtual bool AddFaces(trScene& scene, long material) const = 0;
  virtual void PushShape(trBase& geometry) = 0;

  void DeclareHead();
  void DeclareTail();

  trVector centre_, rotate_, scale_;

 private:
  const char* geometryClass_;
  trBase* geometry_ = nullptr;  ///< owned
  unsigned char showBox_;
  trShaderLink surfaceShader_;
  double displacementTolerance_;
};

class Cube : public PrimitiveObject {
 public:
  Cube();

 protected:
  trVector HalfSize() const override;
  bool AddFaces(trScene& scene, long material) const override;
  void PushShape(trBase& geometry) override;

 private:
  trVector size_;
  double roundRadius_;
};

/// Corners at 1 on the axes.
class Octahedron : public PrimitiveObject {
 public:
  Octahedron();

 protected:
  trVector HalfSize() const override { return {1, 1, 1}; }
  bool AddFaces(trScene& scene, long material) const override;
  void PushShape(trBase& geometry) override;

 private:
  double roundness_;
};
