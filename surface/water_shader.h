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
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

 private:
  void DeclareParams();
  void UpdateWaves();
  void UpdateReflection();
  void UpdateWind();
  /// How far the wind at a point raises the waves: 1 where it doesn't vary.
  double WindFactor(trShadingInterface& si) const;

  double roughness_, waveScale_, smallestScale_;
  double windPatchEffect_, windPatchSize_, windPatchSharpness_;
  long seed_;
  double masterReflectivity_, indexOfRefraction_, horizonShift_;
  double highlightIntensity_, causticIntensity_, minHighlightSpread_;
  double transparency_;
  SubSurface inside_;
  double inverseWaveScale_ = 0, inverseSmallestScale_ = 0;

  // Hidden; null where a class isn't there.
  trShader* waves_ = nullptr;
  ReflectiveShader* reflective_ = nullptr;
  trShader* wind_ = nullptr;
  WaterShader_RandomiseButton randomiseButton_{this};
};
