// populator_v3: very many instances of one object over an area.
#pragma once

#include <memory>
#include <vector>

#include "core/scene_maker.h"
#include "objects/population_layout.h"

class Populator3;

/// "Random Seed".
class Populator3_RandomiseButton : public trRandomSeedGuiPushButton {
 public:
  using trRandomSeedGuiPushButton::trRandomSeedGuiPushButton;
};

/// "Populate Now".
class Populator3_CalculateButton : public trGuiPushButton {
 public:
  explicit Populator3_CalculateButton(Populator3* populator);
  long OnPressed() override;

 private:
  Populator3* populator_;
};

/// Keeps one scene for each variation of its object and a record for each instance, and hands instances to
/// the renderer as particles. The layout hangs on seed and parameters alone: every candidate has random draws
/// of its own, so what the density rejects, and how many threads there are, changes no other instance.
class Populator3 : public trSceneMaker, public trParticleInflator, public juPreviewHandler {
 public:
  Populator3();
  ~Populator3() override;

  // As a node
  long OnCreate() override;
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who) override;
  trPreviewHandler* PreviewHandler() override { return this; }
  /// "population_bytes": a std::uint64_t, what records of instances take.
  void* RequestMember(const char* name) override;

  // As a scene maker
  long Make(trScene& scene, Context context) override;
  /// Populates where something has changed. 1 also where it was cancelled, with what there was till then.
  virtual long GenerateOrRead();

  // As an inflator
  trBoundingBox InstanceBoundingBox(const trParticle& particle) const override;
  long InflateInstanceElement(trRenderState& state, const trParticle& particle, long& cursor) override;
  bool IntersectInstance(trRenderState& state, const trParticle& particle, const trVector& origin,
                         const trVector& direction, double& distance) override;
  bool IsBasicInstancer() const override { return true; }
  long NumInstanceScenes() const override;
  long InstanceSceneIndex(const trParticle& particle) const override;
  std::shared_ptr<trScene> InstanceScene(long index) const override;
  trTransform<double> InstanceTransform(const trParticle& particle) const override;
  trFCol InstancePreviewColour(const trParticle&) const override { return trFCol(0.5f); }

  // As a preview: the area, flat, in its own space.
  unsigned char IsPreviewEnabled() override { return showBoxInPreview_; }
  trBoundingBox BoundingBoxL() override;
  trTransform<double> Transform() override { return worldFromArea_; }
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;
  trVector HandleRotation() override { return areaRotation_; }

  void SetDirty() { isDirty_ = true; }
  /// What the last population made.
  const InstanceStore& Instances() const { return instances_; }

 private:
  class Populating;
  friend class Populating;

  void DeclareParams();
  /// What follows from parameters; what was populated before is out of date.
  void Refresh();
  void CoupleLegacySizes(long index);
  void CouplePreviewSwitches(long index);
  void FollowLinks(long index, trBase* who);
  void FindPlanet();
  void LetObjectBePopulated();
  bool IsPreviewParam(long index) const;
  /// The active camera's view, with `clipping_camera` brought up to date; null where nothing is clipped.
  const trView* ClipView();
  trSceneMaker* ObjectMaker() const;
  long InsertInstances(trScene& scene);
  void ShowWhatVariationsShow(trScene& scene) const;

  unsigned char previewInstances_, showBoxInPreview_, showBoxes_, showWireframes_;
  trNodeLink objectMaker_;
  long uniqueVariations_, renderQuality_;
  trVector areaCentre_, areaRotation_;
  double areaLengthA_, areaLengthB_, objectSpacing_;
  tr2Vector areaSize_, spacing_, randomness_;
  unsigned char useDensityShader_;
  trShaderLink densityShader_;
  unsigned char invertDensityShader_;
  unsigned char sitOnTerrain_;
  trShaderLink terrainShader_;
  trNodeLink planet_;
  double minimumScale_, maximumScale_, minimumTurn_, maximumTurn_;
  unsigned char leansToNormal_;
  double leanEffect_, slopeOfMinLean_, slopeOfFullLean_;
  long seed_;
  unsigned char sampleBeforeTransform_, repopulateEveryFrame_, clipToCamera_;
  trNodeLink clippingCamera_;

  trIntHint variationsHint_, qualityHint_;
  trDoubleHint lengthHint_, turnHint_, slopeHint_;
  Populator3_RandomiseButton randomiseButton_{this};
  Populator3_CalculateButton populateButton_{this};

  // What follows from them.
  trTransform<double> worldFromArea_;
  double sizeFactor_ = 1, enlargementFactor_ = 0.5;
  bool isDirty_ = true;

  // What was populated.
  std::vector<std::shared_ptr<trScene>> scenes_;  ///< by variation
  InstanceStore instances_;
  std::uint64_t bytes_ = 0;
  std::uint64_t stamp_ = 0;  ///< of the network that it was made by

  bool isPopulating_ = false, wasCancelled_ = false;
  bool isCreated_ = false;
  /// Switches that the project has told, which links that it tells don't turn.
  bool densitySwitchIsTold_ = false, terrainSwitchIsTold_ = false;
};
