// The single-scattering sky of a planet: a shell of grey haze and coloured air round a centre.
#pragma once

#include <atomic>
#include <mutex>

#include "atmosphere/atmosphere_ray.h"
#include "core/shader.h"
#include "core/voxel.h"

/// `planet_atmosphere`. Two media, haze and bluesky, thin out exponentially with height; an ozone band may
/// lie above. A medium's horizon colour is what an infinite stretch of it looks like under light of colour 1.
class PlanetAtmosphere final : public trAtmosShader {
 public:
  PlanetAtmosphere();

  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;

  /// Main thread only.
  long PrepareAtmosphere(trRenderingInterface& rendering) override;
  /// Thread-safe, as are the next four.
  long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) override;
  long EvaluateRaySample(trRenderState& state, trAtmosSample& sample) override;
  void FreeIntegrationData(trAtomicIntegrator& integrator, void* rayData) override;
  double LightLeft(trRenderState& state, const trVector& point) override;
  trVolumeShape Shape() const override;

 private:
  class ResetTweaksButton : public trGuiPushButton {
   public:
    explicit ResetTweaksButton(PlanetAtmosphere* node)
        : trGuiPushButton(node, "Reset Tweaks"), atmosphere_(node) {}
    long OnPressed() override { return atmosphere_->ResetTweaks(); }

   private:
    PlanetAtmosphere* atmosphere_;
  };

  /// What evaluation needs and no parameter holds; worked out at the first use after a change.
  struct Derived {
    double floorRadiusSquared = 0, ceilingRadiusSquared = 0;
    double invHazeHeight = 1, invBlueskyHeight = 1;
    double invSamples = 1;
    float blueskyAnisotropy = 0, hazeAnisotropy = 0;
    trShader* shadowFunction = nullptr;
  };

  /// The stretch of a ray inside the shell.
  struct Span {
    trVector entry, step;  ///< `step` is one even sample's advance
    trVector towardsEye;   ///< unit vector from exit to entry
    double stepLength;
    int last;  ///< number of the last sample
  };

  void DeclareMain();
  void DeclareHeights();
  void DeclareLighting();
  void DeclareTweaks();
  void DeclareQuality();
  long ResetTweaks();

  // Couplings (planet_atmosphere_couplings.cpp)
  void CoupleHeights(long index);
  void CoupleColours(long index, trBase* who);
  void DeriveAdditive();
  void DeriveHorizon();
  void LiftRedskyDecay();

  // Planning (planet_atmosphere_rays.cpp)
  void PrepareDerived();
  bool StrikesFloor(const trRenderState::Ray& ray) const;
  bool FindSpan(trRenderState& state, AtmosphereRayData& data, Span& span) const;
  double SampleBudget(const trRenderState::Ray& ray, double length) const;
  void FillLights(trRenderState& state, const Span& span, AtmosphereRayData& data) const;
  void AddSegments(trRenderState& state, trAtomicIntegrator& integrator, const Span& span,
                   AtmosphereRayData& data);

  // Evaluation (planet_atmosphere_samples.cpp)
  void EvaluateMedia(AtmosphereRayData& data, int first) const;
  void AddLights(trRenderState& state, const trAtmosSample& sample, const AtmosphereRayData& data,
                 AtmosphereSegment& segment, double stateQuality);
  void AddEnviro(trRenderState& state, int index, AtmosphereRayData& data, AtmosphereSegment& segment);
  trFCol ProgressiveEnviro(trRenderState& state, trVoxelLightingSystem& lighting, const trVector& point);

  unsigned char enablePrimary_, enableSecondary_;
  trVector centre_;
  double radius_;
  long seed_;
  double hazeDensity_, blueskyDensity_, blueskyAdditive_, redskyDecay_;
  trManRgb hazeHorizonColour_, blueskyHorizonColour_, blueskyAdditiveColour_;
  double hazeExpHeight_, blueskyExpHeight_, ceilingAdjust_, ceiling_, floor_;
  double hazeGlowAmount_, hazeGlowPower_, blueskyGlowAmount_, blueskyGlowPower_;
  unsigned char rayleighPhaseFunction_;
  double enviroLight_;
  trManRgb enviroLightTint_;
  unsigned char anisotropicEnviroLight_, betterCacheRadius_;
  trShaderLink shadowFunction_;
  trManRgb ambient_;
  double fakeDarkPower_, fakeDarkSharpness_;
  trManRgb blueskyDensityColour_, redskyDecayColour_;
  double ozoneFactor_;
  unsigned char improvedGlowModel_;
  long numberOfSamples_;
  unsigned char adjustToDistance_, enableRayTracedShadows_;
  trString shadowsWarning_[3];
  ResetTweaksButton resetTweaksButton_;

  trDoubleHint densityHint_, heightHint_, ceilingAdjustHint_, limitHint_, glowAmountHint_, glowPowerHint_;
  trDoubleHint darkPowerHint_, darkSharpnessHint_;
  trIntHint samplesHint_;

  /// How much of the haze is grey; the rest takes the bluesky's colour.
  double hazeGreyFraction_ = 1.0;

  Derived derived_;
  std::atomic<bool> derivedDirty_{true};
  std::mutex mutex_;
  trVoxelBoxProjector enviroProjector_;
  trVoxelCache<trFCol> enviroCache_;
};
