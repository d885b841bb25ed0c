// The voxel-lit cloud layer's parameters.
#include "atmosphere/cloud_layer_v3.h"

CloudLayerV3::CloudLayerV3() : CloudLayerV3(DefaultLayout()) {}

CloudLayerV3::CloudLayerV3(const CloudLayout& layout) : CloudLayerV2(layout) {}

CloudLayout CloudLayerV3::DefaultLayout() {
  CloudLayout layout;
  layout.hasScatteringColour = false;
  layout.usesVoxelScatter = true;
  layout.marchesAsV2 = false;
  layout.localSphere = 1;
  layout.localSphereRadius = 50000;
  layout.moveTextures = 1;
  layout.useVoxelBuffer = 1;
  layout.accelerateEmptySpace = 0;
  layout.density = 0.1;
  layout.sunGlowAmount = 2;
  layout.lightPropagation = 3;
  layout.lightPropagationMix = 1;
  layout.fakeInternalScattering = 0.25;
  layout.darkerUnresolvedScattering = 1;
  layout.improvedLightingModel = 1;
  return layout;
}

long CloudLayerV3::OnCreate() {
  if (!CloudLayerV2::OnCreate()) return 0;
  for (const char* fixed :
       {"local_sphere", "use_voxel_buffer", "light_propagation_mix", "improved_lighting_model"})
    SetParamGuiEnabled(fixed, false);
  return 1;
}

void CloudLayerV3::DeclareLightingParams() {
  SetRange(propagationHint_, this, {.max = 6});
  SetRange(scatteringHint_, this, {.min = 0, .max = 1});
  OpenTab("Lighting", "lighting_tab");
  lowScatterHeading_.Declare(this, "lowmid_scatter_separator", "Silver lining and dark edges");
  Param(settings_.sunGlowAmount, "sun_glow_amount", layout_.sunGlowAmount, &sunGlowAmountHint_);
  Param(settings_.sunGlowPower, "sun_glow_power", 1.0, &sunGlowPowerHint_);
  highScatterHeading_.Declare(this, "midhigh_scatter_separator", "Multiple scattering");
  Param(settings_.lightPropagation, "light_propagation", layout_.lightPropagation, &propagationHint_)
      .Display("Softness");
  Param(settings_.lightPropagationMix, "light_propagation_mix", layout_.lightPropagationMix)
      .Display("Param B");
  Param(settings_.fakeInternalScattering, "fake_internal_scattering", layout_.fakeInternalScattering,
        &scatteringHint_)
      .Display("Param C");
  enviroHeading_.Declare(this, "enviro_light_separator", "Light received from environment");
  Param(settings_.enviroLight, "enviro_light", 1.0);
  Param(settings_.enviroLightTint, "enviro_light_tint", trManRgb(1, 1, 1, true));
  Gui(trGuiHiddenOpen);
  Param(settings_.darkerUnresolvedScattering, "darker_unresolved_scattering",
        layout_.darkerUnresolvedScattering);
  Gui(trGuiHiddenClose);
  settings_.anisotropicEnviroLight = 1;
  settings_.viewFromSpace = 0;
}

void CloudLayerV3::DeclareQualityParams() {
  OpenTab("Quality", "quality_tab");
  Param(settings_.renderingMethod, "rendering_method", 1L, &methodHint_);
  Param(settings_.quality, "quality", 0.25).Display("Ray-marching quality");
  Gui(trGuiHiddenOpen);
  Param(settings_.numberOfSamples, "number_of_samples", 8L);
  Gui(trGuiHiddenClose);
  Param(settings_.sampleJitter, "sample_jitter", 1.0);
  DeclareShadowsFromSurfaces();
  settings_.stepOptimisation = 0;
  maxScatterSteps_ = 100;
}

void CloudLayerV3::PrepareCloudDerived() {
  settings_.useVoxelBuffer = 1;
  CloudLayerV2::PrepareCloudDerived();
  derived_.scatterColour = trFCol();
  derived_.maxScatterSteps = maxScatterSteps_ > 0 ? static_cast<float>(maxScatterSteps_) : 0.0f;
}
