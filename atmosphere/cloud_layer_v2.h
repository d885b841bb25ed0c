// A layer of clouds: the shell between two spheres round a planet's centre, filled with the density of a
// shader network.
#pragma once

#include <memory>

#include "atmosphere/cloud_export.h"
#include "atmosphere/cloud_probe.h"
#include "atmosphere/cloud_scatter.h"
#include "atmosphere/cloud_span.h"
#include "atmosphere/cloud_voxels.h"
#include "atmosphere/sky_paint_solve.h"
#include "core/image.h"
#include "core/preview.h"
#include "core/voxel.h"

class CloudLayerV2;

/// "Analyze and Fit Box": fits the linked box to where the cloud is.
class AnalyzeExportBoundsButton : public trGuiPushButton {
 public:
  explicit AnalyzeExportBoundsButton(CloudLayerV2* cloud);
  long OnPressed() override;

 private:
  CloudLayerV2* cloud_;
};

/// "Reset Box to Max": gives the linked box all of the local cloud.
class ResetExportBoundsButton : public trGuiPushButton {
 public:
  explicit ResetExportBoundsButton(CloudLayerV2* cloud);
  long OnPressed() override;

 private:
  CloudLayerV2* cloud_;
};

/// `cloud_layer_v2`. OnCreate declares the parameters, through the Declare slots, so that subclasses have a
/// say.
class CloudLayerV2 : public trAtmosShader, public juPreviewHandler, public SkyPaintable {
 public:
  CloudLayerV2();
  ~CloudLayerV2() override;

  long OnCreate() override;
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who) override;
  void UpdateDerived() override;
  using trAtmosShader::SetParamFromString;
  long SetParamFromString(const char* name, const trString& value, trBase* who) override;
  trPreviewHandler* PreviewHandler() override { return this; }
  /// Grids and bakes for the host: a trVoxelBuffer* for "init voxel buffer", "voxelBuffer", "voxel info" and
  /// "voxel info for export", a trVoxelServer* for "begin voxel server for export", null for "end voxel
  /// server", a trAnisoVoxelCache<trFCol>* for "indirectLightingVoxelCache".
  void* RequestMember(const char* name) override;

  // --- The family's own slots
  long PrepareAtmosphere(trRenderingInterface& rendering) override;
  virtual void PrepareCloudForRender(trRenderingInterface& rendering);
  /// Thread-safe, as are the next four.
  long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) override;
  long EvaluateRaySample(trRenderState& state, trAtmosSample& sample) override;
  void FreeIntegrationData(trAtomicIntegrator& integrator, void* rayData) override;
  trFCol TransmittanceTowards(trRenderState& state, const trLightState& light, const trVector& point,
                              const trVector& spot) override;
  trVolumeShape Shape() const override;
  bool HasMatter() const override;
  double GreatestExtinction() const override;
  trVolumeMatter MatterAt(trRenderState& state, const trVector& point) override;
  float PhaseFunction(double cosAngle) const override;

  /// Bakes the block of voxels that begins at a cell, 24 cells along each edge; false when it was stopped.
  /// Thread-safe, after PrepareAtmosphere.
  bool BakeBlock(trRenderState& state, int x, int y, int z);

  trString PaintedName() const override { return Name(); }
  float OpacityAtPaintValue(trRenderState& state, const trVector& eye, const trVector& direction,
                            float paintValue) override;

  // The preview is in world space.
  trBoundingBox BoundingBoxL() override { return CloudBoundingBox(); }
  trVector HandlePositionL() override { return settings_.localSphereCentre; }
  void MoveHandlePositionT(const trVector& delta) override;

  /// The box about the local sphere's centre that holds the local cloud, as if that were the planet's apex.
  trBoundingBox CloudBoundingBox() const;
  const CloudSettings& Settings() const { return settings_; }
  const CloudDerived& Derived() const { return derived_; }
  /// Places and sizes the box linked by `export_bounds`; 0 where there is none. Main thread only.
  long FitExportBounds(const trBoundingBox& box);
  /// The same with the box of what there is of the cloud.
  long FitExportBoundsToCloud();
  /// Density as a cell of a grid holds it: a share of full extinction. The state's ray and draws stay.
  trFCol BakedDensity(trRenderState& state, const trVoxelBuffer& buffer, const trVector& point,
                      unsigned seed);
  /// Sent when the layer's altitude or depth has changed.
  static constexpr unsigned long kChangedMessage = 1;
  /// Grows with every change of what the cloud looks like.
  unsigned long ChangeCounter() const { return changeCounter_; }

 protected:
  /// For subclasses that lay the sheet out differently.
  explicit CloudLayerV2(const CloudLayout& layout);

  // --- Declarations, in the sheet's order
  virtual void DeclareMainParams();
  virtual void DeclareColourParams();
  virtual void DeclareLightingParams();
  virtual void DeclareTweakTabs();
  virtual void DeclareFunctionParams();
  virtual void DeclareTweakParams();
  virtual void DeclareExtraParams() {}
  virtual void DeclareQualityParams();
  virtual void DeclareOptimisationParams();
  virtual void DeclarePaintParams();
  virtual void PrepareCloudDerived();

  /// How much more light than evenly goes on at an angle; `radius` is the light's, radians.
  float Phase(float cosAngle, bool glow, float radius) const;
  /// Light that a step sends along the ray, direct and from around, before tint and opacity.
  virtual void ShadeStep(trRenderState& state, const trAtmosSample& sample, CloudState& data, trFCol& direct,
                         trFCol& enviro);

  // For lighting, by subclasses too
  CloudThread& Thread(trRenderState& state) const { return state.Scratch<CloudThread>(this); }
  /// What holds for the ray in hand.
  const CloudThread& ThreadOfRay(trRenderState& state) const;
  CloudProbe Probe(trRenderState& state) const {
    return {settings_, derived_, hooks_, paintSolver_, ThreadOfRay(state), state};
  }
  CloudVoxels& Voxels() const { return *voxels_; }
  /// What the voxels' scattered light is found for; null without.
  const CloudMedium* Medium() const { return medium_.get(); }
  /// What the layer's functions make of light at a point.
  struct Modulators {
    trFCol shadow{1.0f}, direct{1.0f}, enviro{1.0f}, ambient{1.0f};
  };
  Modulators ModulatorsAt(trRenderState& state, const trVector& point, bool hasLights, bool hasEnviro) const;
  /// Light that isn't resolved near to the eye is dimmed there.
  float UnresolvedFade(const trRenderState& state, const trVector& point) const;
  float TerminatorDarkness(const trLightState& light, const trVector& point) const;
  /// How deep a step lies: weights of light from above and below, and what is added to the glow.
  struct Depths {
    float up, down, extra;
  };
  Depths DepthsOf(const CloudStep& step) const;
  void AddEnviro(trRenderState& state, const trAtmosSample& sample, CloudState& data, const Depths& depths,
                 const trFCol& modulator, trFCol& enviro);

  /// A tab of the sheet, with the rule ahead of it.
  void OpenTab(const char* label, const char* name);
  void DeclareShadowsFromSurfaces();

  CloudLayout layout_;
  CloudSettings settings_;
  CloudDerived derived_;
  /// Shaders that a subclass has in place of those linked.
  trShader* densityOverride_ = nullptr;
  trShader* linkOverride_[static_cast<int>(CloudLink::kCount)] = {};
  CloudHooks* hooks_ = nullptr;
  long maxScatterSteps_ = 0;

  trDoubleHint altitudeHint_, localRadiusHint_, sharpnessHint_, densityHint_, coverageHint_, valueHint_;
  trDoubleHint sunGlowAmountHint_, sunGlowPowerHint_, propagationHint_, scatteringHint_;
  trDoubleHint darkPowerHint_, darkSharpnessHint_, stepHint_, voxelsHint_;
  trIntHint methodHint_;

 private:
  void SetRanges();
  void DeclareIdentity();
  void DeclareAltitudes();
  void DeclareLocalSphere();
  void DeclareDensity();
  void DeclareShadowMap();
  void DeclareVoxels();
  void DeclareExport();

  // The march (cloud_march.cpp)

  /// How a ray is marched.
  struct Plan {
    CloudSpan span;
    int steps = 0;
    double step = 0;     ///< metres of an even step
    double inverse = 0;  ///< of the number of steps
    trVector advance;    ///< of an even step
    double jitter = 0;
    bool isEven = false;  ///< positions at even distances, for cells of voxels
    bool isShadowRay = false;
    bool takesShadowMap = false;  ///< in place of a march
    bool skipsByVoxels = false;   ///< voxels tell where there is nothing
    /// From here on along the ray, metres, voxels tell the density too.
    double voxelsFrom = 1e300;
    double stepsPerVoxel = 0;
    bool skipsBlocks = false;  ///< of voxels without cloud in or near them
    trVector pace;             ///< voxels a metre
    float stopAt = 0, thinAt = 0;
  };
  bool IsPassed(const trRenderState::Ray& ray, const CloudThread& thread) const;
  void PlanVoxels(const trRenderState::Ray& ray, const CloudThread& thread, Plan& plan) const;
  bool PlanMarch(const trRenderState::Ray& ray, const CloudThread& thread, Plan& plan) const;
  double NumSteps(const trRenderState::Ray& ray, const CloudThread& thread, double length) const;
  float ThinAt(const CloudThread& thread) const;
  void PrepareRayData(trRenderState& state, const Plan& plan, const CloudThread& thread,
                      CloudState& data) const;
  trFCol March(trRenderState& state, const Plan& plan, trAtomicIntegrator* integrator, CloudState* data);
  trFCol StepOpacity(const Plan& plan, const CloudThread& thread, const CloudSample& sample,
                     const trFCol& left) const;
  enum class Cell { kEmptySpace, kNothing, kClear, kCloud };
  Cell SampleStep(trRenderState& state, const Plan& plan, CloudProbe& probe, const trVector& point,
                  float local, CloudSample& sample);
  bool FindSpan(const trVector& from, const trVector& to, CloudSpan& span) const;
  trFCol MarchAlone(trRenderState& state);
  trFCol TransmittanceOut(trRenderState& state, const trVector& point, const trVector& direction);

  // Voxels (cloud_voxels.cpp)
  class CellBake;
  friend class CloudMedium;
  trFCol BakeCell(CellBake& bake, trRenderState& state, const trVoxelBuffer& buffer, const trVector& point,
                  unsigned seed);
  static bool FillCell(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const trVector& world,
                       unsigned seed, trF4Col& value);
  static bool IsEmptyRange(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const int first[3],
                           const int last[3]);
  /// How far a ray goes on from a point in a block of voxels that has no cloud, metres; 0 in others.
  double ClearAhead(trRenderState& state, const Plan& plan, const trVector& point);
  struct SunlightFill {
    CloudLayerV2* cloud;
    const trLightState* light;
    trVector direction;
    double voxelsFrom;
  };
  static bool FillSunlight(void* owner, trRenderState& state, const trVoxelBuffer& buffer,
                           const trVector& world, unsigned seed, trFCol& value);
  bool SunlightBelow(trRenderState& state, const trLightState& light, const trVector& point, trFCol& left);
  trF4Col VoxelLookup(trRenderState& state, const trVector& point, int level, bool isSmooth);
  int LookupLevel(const trRenderState& state, const trVector& point, double scale) const;
  void LayLimbProjector();
  bool PrepareVoxelBuffer(bool isNamed);
  void AddBakeTasks(trRenderingInterface& rendering);
  bool NeedsVoxels() const;
  void PrepareScatter(trRenderingInterface& rendering);
  void PrepareIndirectCache();
  void PrepareSunlight();
  trVoxelBuffer* BuildExportBuffer();

  // Light (cloud_shade.cpp)
  trFCol LightOf(trRenderState& state, CloudThread& thread, const CloudLight& light, const trVector& point,
                 const trVector& spot, float extra) const;
  trFCol ProgressiveEnviro(trRenderState& state, trVoxelLightingSystem& lighting, const trVector& point);

  // Paint (cloud_paint.cpp)
  void FindLegacyPaint();
  void PreparePaint(trRenderingInterface& rendering);

  // Shadow map (cloud_shadow_map.cpp)
  void PrepareShadowMap(trRenderState& state);
  void GenerateShadowMap(trRenderState& state);
  bool FillShadowMap(trRenderState& state, int width, int height);
  void BlurShadowMap(double radiusX, double radiusY);
  trFCol ShadowMapOpacity(const trVector& point) const;

  // Couplings (cloud_layer_couplings.cpp)
  void Couple(long index, trBase* who);
  void CoupleQuality(long index, trBase* who);
  bool CoupleAltitudes(long index, trBase* who);
  void PlaceLocalSphere();
  trVector PlacedLocalSphereCentre() const;
  void CoupleVoxels(long index, trBase* who);
  trVector IdealVoxelResolution() const;
  void MarkDirt(long index);
  void RefreshColourInfo();
  void RefreshGui();
  double StepsAtFullQuality() const;
  float InverseMeanPhase();

  trRandomSeedGuiPushButton randomiseButton_;
  AnalyzeExportBoundsButton analyzeButton_;
  ResetExportBoundsButton resetButton_;
  bool isDeclared_ = false, isCoupling_ = false;
  bool lightingDirty_ = true, shadowMapDirty_ = true, voxelsDirty_ = true;
  unsigned long changeCounter_ = 0;
  bool isShadowMapSolving_ = false;
  double sunlightFrom_ = 0;  ///< from how far below the base voxels tell what comes through, metres
  bool isProgressive_ = false;
  /// What the mean of the phase was last worked out for.
  double meanOfAmount_ = 0, meanOfPower_ = 0;
  bool meanOfImproved_ = false;
  float inverseMean_ = 0;  ///< 0: not yet
  trFloatMap shadowMap_;
  std::unique_ptr<CloudVoxels> voxels_;
  std::unique_ptr<CloudMedium> medium_;
  std::unique_ptr<CloudLayerV2_VoxelServer> server_;
  trBase* ownPaintSolver_ = nullptr;
  trShader* paintSolver_ = nullptr;  ///< ownPaintSolver_ where it is bound and calibrated
  trString legacyPaint_;             ///< the paint of older projects, by name, until a render looks it up
  trCloudSteps cloudSteps_ = trCloudSteps::kTrueLengths;
};
