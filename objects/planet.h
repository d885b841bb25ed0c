// planet: a ball with a surface network, and its atmosphere.
#pragma once

#include "core/scene_maker.h"

class Planet : public juSubSceneMaker, public juPreviewHandler {
 public:
  Planet();
  ~Planet() override;

  void PreDestroy() override;
  long OnCreate() override;
  long OnFirstCreate() override;
  trPreviewHandler* PreviewHandler() override { return this; }

  long MakePlanetSurface(trScene& scene) override;
  bool MakeNonSurface(trScene& scene) override;
  void BindPlanetMaterials(trScene& scene) override;
  void PushPlanetParamsToChildren() override;

  // The preview is in world space: its transform is the identity.
  unsigned char IsPreviewEnabled() override { return showBox_; }
  trBoundingBox BoundingBoxL() override;
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;
  trVector HandleRotation() override { return rotation_; }

 private:
  void CreateSurfaceNetwork();
  void CreateAtmosphere();
  void PushTextureTransform();
  /// Turns directions of the unturned planet to where `rotation` takes them.
  trTransform<double> Turn() const;
  trShader* SurfaceShader() const { return LinkedShader(surfaceShader_); }
  trShader* AtmosphereShader() const { return LinkedShader(atmosphereShader_); }

  unsigned char showBox_, renderSurface_, renderAtmosphere_;
  unsigned char translateTextures_, rotateTextures_;
  tr2Vector latLongAtApex_;  ///< of the point above the centre along +y; georeferenced nodes read it
  trVector centre_, rotation_;
  double radius_, displacementTolerance_;
  trShaderLink surfaceShader_, atmosphereShader_;
  trDoubleHint radiusHint_, toleranceHint_;
  trBase* sphereGeometry_ = nullptr;    ///< owned
  trBase* textureTransform_ = nullptr;  ///< owned
};
