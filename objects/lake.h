// lake: water on a planet's sea level, within a radius.
#pragma once

#include "core/scene_maker.h"

class Lake : public juSubSceneMaker, public juPreviewHandler {
 public:
  Lake();
  ~Lake() override;

  long OnCreate() override;
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  trPreviewHandler* PreviewHandler() override { return this; }

  long MakePlanetSurface(trScene& scene) override;
  void BindPlanetMaterials(trScene& scene) override;
  void PushPlanetParamsToChildren() override;

  // The preview is in world space: its transform is the identity.
  unsigned char IsPreviewEnabled() override { return handleInPreview_; }
  trBoundingBox BoundingBoxL() override;
  trVector HandlePositionL() override { return centre_; }
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;
  trVector HandleRotation() override { return rotate_; }

 private:
  struct Ball {
    trVector centre;
    double radius = 0;
  };
  /// The planet that the lake lies on; false where none is linked.
  bool FindPlanet(Ball& planet) const;
  /// Both spheres go through the lake's centre, about the planet's.
  void PlaceSpheres(const Ball& planet);
  void SetRadiusOfUser(double radius);

  unsigned char handleInPreview_;
  double waterLevel_;  ///< metres above the planet's radius
  trVector centre_, rotate_;
  double maxRadius_, displacementTolerance_;
  trPlanetLink planet_;
  trShaderLink surfaceShader_;
  trDoubleHint levelHint_, radiusHint_, toleranceHint_;
  trBase* userSphere_ = nullptr;      ///< owned; follows each change of the user's
  trBase* materialSphere_ = nullptr;  ///< owned; the geometry of the water
};
