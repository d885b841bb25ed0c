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
  SetAbout(this, "use_voxel_buffer", "Always on in this class, which finds scattered light in the voxels.");
  return 1;
}

void CloudLayerV3::DeclareLightingParams() {
  SetRange(propagationHint_, this, {.max = 6});
  SetRange(scatteringHint_, this, {.min = 0, .max = 1});
  OpenTab("Lighting", "lighting_tab");
  lowScatterHeading_.Declare(this, "lowmid_scatter_separator", "Silver lining and dark edges");
  Param(settings_.sunGlowAmount, "sun_glow_amount", layout_.sunGlowAmount, &sunGlowAmountHint_)
      .About("Strength of the bright edges towards the sun. 0 scatters light evenly.");
  Param(settings_.sunGlowPower, "sun_glow_power", 1.0, &sunGlowPowerHint_)
      .About("How closely that glow gathers round the sun: low is a wide shine, high a small one.");
  highScatterHeading_.Declare(this, "midhigh_scatter_separator", "Multiple scattering");
  Param(settings_.lightPropagation, "light_propagation", layout_.lightPropagation, &propagationHint_)
      .Display("Softness")
      .About("How much deeper the soft part of the glow gets into clouds. More has softer shade.");
  Param(settings_.lightPropagationMix, "light_propagation_mix", layout_.lightPropagationMix)
      .Display("Param B")
      .About("Kept with the project; without effect in this class.");
  Param(settings_.fakeInternalScattering, "fake_internal_scattering", layout_.fakeInternalScattering,
        &scatteringHint_)
      .Display("Param C")
      .About("Kept with the project; without effect in this class.");
  enviroHeading_.Declare(this, "enviro_light_separator", "Light received from environment");
  Param(settings_.enviroLight, "enviro_light", 1.0)
      .About("Factor of the light that clouds get from sky and ground; 1 is what is really there.");
  Param(settings_.enviroLightTint, "enviro_light_tint", trManRgb(1, 1, 1, true)).About("Tint of that light.");
  Gui(trGuiHiddenOpen);
  Param(settings_.darkerUnresolvedScattering, "darker_unresolved_scattering",
        layout_.darkerUnresolvedScattering)
      .About("Dims light close to where rays begin, inside clouds, where it isn't resolved.");
  Gui(trGuiHiddenClose);
  settings_.anisotropicEnviroLight = 1;
  settings_.viewFromSpace = 0;
}

void CloudLayerV3::DeclareQualityParams() {
  OpenTab("Quality", "quality_tab");
  Param(settings_.renderingMethod, "rendering_method", 1L, &methodHint_)
      .About("3D marches through the layer; 2D takes a single step, for thin high clouds.");
  Param(settings_.quality, "quality", 0.25)
      .Display("Ray-marching quality")
      .About(
          "Steps through the layer, against what its density asks for. Raise it where grain or steps show.");
  Gui(trGuiHiddenOpen);
  Param(settings_.numberOfSamples, "number_of_samples", 8L)
      .About("Steps through the layer's depth. Follows the quality, and sets it.");
  Gui(trGuiHiddenClose);
  Param(settings_.sampleJitter, "sample_jitter", 1.0)
      .About("How far steps are shifted by chance, as a share of a step. 0 shows bands in place of grain.");
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
