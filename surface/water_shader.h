// water_shader: open water with wind waves, from ripples at one's feet to the glitter of a far sea.
#pragma once

#include "surface/sub_surface.h"

/// "Random Seed" of water.
class WaterShader_RandomiseButton : public trRandomSeedGuiPushButton {
 public:
  using trRandomSeedGuiPushButton::trRandomSeedGuiPushButton;
};

class WaterShader : public trShader {
 public:
  WaterShader();
  ~WaterShader() override;
  void OnParamChanged(long index, trBase* who) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

 private:
  void DeclareParams();
  void Update();
  void UpdateWaves();
  void UpdateReflection();
  void UpdateWind();
  /// How far the wind at a point raises the waves: 1 where it doesn't vary.
  double WindFactor(trShadingInterface& si) const;

  double roughness_ = 0, waveScale_ = 0, smallestScale_ = 0;
  double windPatchEffect_ = 0, windPatchSize_ = 0, windPatchSharpness_ = 0;
  long seed_ = 0;
  double masterReflectivity_ = 0, indexOfRefraction_ = 0, horizonShift_ = 0;
  double highlightIntensity_ = 0, causticIntensity_ = 0, minHighlightSpread_ = 0;
  double transparency_ = 0;
  SubSurface inside_;
  double inverseWaveScale_ = 0, inverseSmallestScale_ = 0;

  // Hidden; null where a class isn't there.
  trShader* waves_ = nullptr;
  ReflectiveShader* reflective_ = nullptr;
  trShader* wind_ = nullptr;
  WaterShader_RandomiseButton randomiseButton_{this};
};
