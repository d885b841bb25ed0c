// The cloud layer's parameters, in the project file's order.
#include "atmosphere/cloud_layer_v2.h"
#include "core/idioms.h"

namespace {

constexpr trManRgb kGrey(0.25f, 0.25f, 0.25f, true);
constexpr trManRgb kWhite(1, 1, 1, true), kBlack(0, 0, 0, true);

/// Codes of a stretch of the sheet that is shown only where it isn't hidden.
class MaybeHidden {
 public:
  MaybeHidden(trBase* node, bool isHidden) : node_(isHidden ? node : nullptr) {
    if (node_) node_->Gui(trGuiHiddenOpen);
  }
  ~MaybeHidden() {
    if (node_) node_->Gui(trGuiHiddenClose);
  }
  MaybeHidden(const MaybeHidden&) = delete;
  MaybeHidden& operator=(const MaybeHidden&) = delete;

 private:
  trBase* node_;
};

}  // namespace

void CloudLayerV2::SetRanges() {
  const trRange focused = {.min = 0, .focusPower = 3.321, .focusValue = 0};
  const auto upTo = [&](double max) {
    trRange range = focused;
    range.max = max;
    return range;
  };
  SetRange(altitudeHint_, this, upTo(30000));
  SetRange(localRadiusHint_, this, upTo(100000));
  SetRange(sharpnessHint_, this, upTo(100));
  SetRange(densityHint_, this, {.min = 0, .max = 1, .focusPower = 2, .focusValue = 0});
  SetRange(coverageHint_, this, {.min = -2, .max = 2});
  SetRange(valueHint_, this, {.min = -1, .max = 0});
  SetRange(sunGlowAmountHint_, this, {.max = 4, .focusPower = 2});
  SetRange(sunGlowPowerHint_, this, {.max = 1.5});
  SetRange(propagationHint_, this, {.max = 4});
  SetRange(scatteringHint_, this, {.min = 0, .max = 4});
  SetRange(darkPowerHint_, this, {.max = 2});
  SetRange(darkSharpnessHint_, this, {.max = 32});
  SetRange(stepHint_, this, {.min = 0, .max = 20});
  SetRange(voxelsHint_, this, {.min = 0, .max = 32});
  SetMenu(methodHint_, this, {{"2D", 0}, {"3D (volumetric)", 1}});
}

void CloudLayerV2::OpenTab(const char* label, const char* name) {
  Gui(trGuiRule);
  GuiTab(label, name);
}

void CloudLayerV2::DeclareIdentity() {
  {
    const MaybeHidden hidden(this, layout_.hideSeed);
    if (layout_.hideSeed)
      Param(settings_.seed, "seed", 0L);
    else
      Seed(settings_.seed);
  }
  if (!layout_.hideSeed) {
    Gui(trGuiButtonRowOpen);
    Gui(trGuiRowOpen);
    PushButton(randomiseButton_, "randomise_button");
    Gui(trGuiButtonRowClose);
  }
  Param(settings_.enablePrimary, "enable_primary", 1);
  Param(settings_.enableSecondary, "enable_secondary", 1);
  Param(settings_.moveTexturesWithCloud, "move_textures_with_cloud", layout_.moveTextures)
      .Alias("local_texture_offset");
  const MaybeHidden hidden(this, true);
  Param(settings_.centre, "centre", trVector(0, -6378000, 0)).Alias("center");
  Param(settings_.radius, "radius", 6.378e6);
}

void CloudLayerV2::DeclareMainParams() {
  OpenTab("Main", "basic_tab");
  DeclareAltitudes();
  DeclareLocalSphere();
  DeclareDensity();
}

void CloudLayerV2::DeclareAltitudes() {
  {
    const MaybeHidden hidden(this, layout_.hideCentreAltitude);
    Param(settings_.altitude, "cloud_altitude", layout_.baseAltitude + layout_.depth / 2, &altitudeHint_);
  }
  {
    const MaybeHidden hidden(this, layout_.hideBaseAltitude);
    Param(settings_.baseAltitude, "cloud_base_altitude", layout_.baseAltitude, &altitudeHint_);
  }
  Param(settings_.depth, "cloud_depth", layout_.depth, &altitudeHint_);
  const char* const derived = layout_.baseAltitudeIsPrimary ? "cloud_altitude" : "cloud_base_altitude";
  SetParamGuiEnabled(derived, false);
  SetParamShouldBeSaved(derived, false);
}

void CloudLayerV2::DeclareLocalSphere() {
  if (!layout_.hasLocalSphere) {
    settings_.localSphere = 0;
    settings_.localSphereCentre = trVector();
    settings_.localSphereRadius = settings_.localSphereValueAtRadius = 0;
    settings_.localSphereFalloff = 1;
    return;
  }
  Param(settings_.localSphere, "local_sphere", layout_.localSphere).Display("Localise");
  Gui(trGuiIndentOpen);
  Param(settings_.localSphereCentre, "local_sphere_centre", PlacedLocalSphereCentre()).Display("Centre");
  Param(settings_.localSphereRadius, "local_sphere_radius", layout_.localSphereRadius, &localRadiusHint_)
      .Display("Radius");
  {
    const MaybeHidden hidden(this, layout_.hideCoverageControls);
    Param(settings_.localSphereFalloff, "local_sphere_falloff", 1.0).Display("Falloff (0..1)");
    Param(settings_.localSphereValueAtRadius, "local_sphere_value_at_radius", -0.5, &valueHint_)
        .Display("Value at radius (-1..0)");
  }
  Gui(trGuiIndentClose);
}

void CloudLayerV2::DeclareDensity() {
  settings_.densityShader.SetIsHidden(layout_.hideDensityLink);
  {
    const MaybeHidden hidden(this, layout_.hideDensityLink);
    Param(settings_.densityShader, "density_shader", "");
  }
  {
    const MaybeHidden hidden(this, layout_.hideDensityControls);
    Param(settings_.edgeSharpness, "edge_sharpness", 1.0, &sharpnessHint_);
    Param(settings_.density, "cloud_density", layout_.density, &densityHint_);
  }
  const MaybeHidden hidden(this, layout_.hideCoverageControls);
  Param(settings_.coverageAdjust, "coverage_adjust", 0.0, &coverageHint_);
}

void CloudLayerV2::DeclareColourParams() {
  OpenTab("Colour", "colour_tab");
  Param(settings_.colour, "cloud_colour", kGrey).Alias("cloud_color");
  RefreshColourInfo();
  Param(settings_.colourInfo, "colour_info_0", trString(settings_.colourInfo)).NotSaved();
  SetParamGuiEnabled("colour_info_0", false);
  settings_.scatteringColour = kGrey;
  if (layout_.hasScatteringColour) Param(settings_.scatteringColour, "scattering_colour", kGrey);
}

void CloudLayerV2::DeclareLightingParams() {
  OpenTab("Lighting", "lighting_tab");
  Param(settings_.sunGlowAmount, "sun_glow_amount", layout_.sunGlowAmount, &sunGlowAmountHint_);
  Param(settings_.sunGlowPower, "sun_glow_power", 1.0, &sunGlowPowerHint_);
  Param(settings_.lightPropagation, "light_propagation", layout_.lightPropagation, &propagationHint_);
  Param(settings_.lightPropagationMix, "light_propagation_mix", layout_.lightPropagationMix);
  Param(settings_.fakeInternalScattering, "fake_internal_scattering", layout_.fakeInternalScattering,
        &scatteringHint_);
  Param(settings_.viewFromSpace, "view_from_space_shading_model", 0)
      .Display("\"View from space\" shading model");
  Param(settings_.enviroLight, "enviro_light", 1.0);
  Param(settings_.enviroLightTint, "enviro_light_tint", kWhite);
  Param(settings_.darkerUnresolvedScattering, "darker_unresolved_scattering",
        layout_.darkerUnresolvedScattering);
  Param(settings_.anisotropicEnviroLight, "anisotropic_enviro_light", 1);
}

void CloudLayerV2::DeclareTweakTabs() {
  if (layout_.mergedTweaksTab) {
    OpenTab("Tweaks", "tweaks_tab");
    DeclareFunctionParams();
    DeclareTweakParams();
    return;
  }
  OpenTab("Functions", "functions_tab");
  DeclareFunctionParams();
  OpenTab("Tweaks", "tweak_tab");
  DeclareTweakParams();
}

void CloudLayerV2::DeclareFunctionParams() {
  {
    const MaybeHidden hidden(this, layout_.hideDensityLink);
    for (trShaderLink* link :
         {&settings_.altitudeOffsetFunction, &settings_.depthModulator, &settings_.finalDensityModulator})
      link->SetIsHidden(layout_.hideDensityLink);
    Param(settings_.altitudeOffsetFunction, "altitude_offset_function", "");
    Param(settings_.altitudeOffsetMultiplier, "altitude_offset_multiplier", 1.0)
        .Display("Function multiplier");
    Param(settings_.depthModulator, "depth_modulator", "");
    Param(settings_.depthModulatorCentre, "depth_modulator_centre", 0.0).Display("Centre (0..1)");
    Param(settings_.finalDensityModulator, "final_density_modulator", "");
  }
  Param(settings_.directLightModulator, "direct_light_modulator", "");
  Param(settings_.enviroLightModulator, "enviro_light_modulator", "");
  Param(settings_.ambientLightModulator, "ambient_light_modulator", "");
  Param(settings_.shadowFunction, "shadow_function", "");
}

void CloudLayerV2::DeclareTweakParams() {
  Param(settings_.ambient, "ambient", kBlack);
  Param(settings_.fakeDarkPower, "fake_dark_power", 0.0, &darkPowerHint_).Display("Fake terminator darkness");
  Param(settings_.fakeDarkSharpness, "fake_dark_sharpness", 10.0, &darkSharpnessHint_);
  Param(settings_.improvedLightingModel, "improved_lighting_model", layout_.improvedLightingModel);
  const MaybeHidden hidden(this, layout_.hideCoverageControls);
  Param(settings_.taperTopAndBase, "taper_top_and_base", 1);
  Param(settings_.flatterBase, "flatter_base", 0);
  Param(settings_.baseWispiness, "base_wispiness", 0.0).Alias("wispy_base");
  Param(settings_.baseSoftness, "base_softness", 0.0).Alias("softer_base");
  Param(settings_.invertProfile, "invert_profile", 0);
  Param(settings_.coverageGamma, "coverage_gamma", 1.0);
}

void CloudLayerV2::DeclareQualityParams() {
  OpenTab("Quality", "quality_tab");
  Param(settings_.renderingMethod, "rendering_method", 1L, &methodHint_);
  Param(settings_.quality, "quality", 0.25);
  {
    const MaybeHidden hidden(this, true);
    Param(settings_.numberOfSamples, "number_of_samples", 8L);
  }
  Param(settings_.sampleJitter, "sample_jitter", 1.0);
  Param(settings_.stepOptimisation, "step_optimisation", 0.0, &stepHint_);
  DeclareShadowsFromSurfaces();
}

void CloudLayerV2::DeclareShadowsFromSurfaces() {
  Param(settings_.enableRayTracedShadows, "enable_ray_traced_shadows", 0)
      .Display("Receive shadows from surfaces");
  constexpr const char* kWarning[2][2] = {
      {"ray_traced_shadows_warning_0",
       "Enable shadows from surfaces only if you need terrain or other surfaces to"},
      {"ray_traced_shadows_warning_1",
       "cast visible shadows on clouds, or to hide lightsource glows behind surfaces."}};
  for (int line = 0; line < 2; ++line) {
    Param(settings_.shadowsWarning[line], kWarning[line][0], kWarning[line][1]).NotSaved();
    SetParamGuiEnabled(kWarning[line][0], false);
  }
}

void CloudLayerV2::DeclareOptimisationParams() {
  OpenTab("Optimisation", "optimisation_tab");
  DeclareShadowMap();
  DeclareVoxels();
  DeclareExport();
}

void CloudLayerV2::DeclareShadowMap() {
  Param(settings_.useShadowMap, "use_2D_shadow_map", 0);
  Gui(trGuiIndentOpen);
  Param(settings_.shadowMapResolution, "shadow_map_resolution", tr2Vector(200, 200));
  Param(settings_.shadowMapBlurRadius, "shadow_map_blur_radius", tr2Vector(2, 2));
  Gui(trGuiIndentClose);
  AddGuiAction({"use_2D_shadow_map"}, {"shadow_map_resolution", "shadow_map_blur_radius"}, 2);
}

void CloudLayerV2::DeclareVoxels() {
  Param(settings_.useVoxelBuffer, "use_voxel_buffer", layout_.useVoxelBuffer);
  Gui(trGuiIndentOpen);
  Param(settings_.millionsOfVoxels, "millions_of_voxels", 10.0, &voxelsHint_);
  // Localised layers start with the grid that their box asks for.
  Param(settings_.voxelBufferResolution, "voxel_buffer_resolution",
        layout_.localSphere ? IdealVoxelResolution() : trVector(100, 20, 100));
  Param(settings_.accelerateEmptySpace, "use_voxels_to_accelerate_empty_space", layout_.accelerateEmptySpace)
      .Display("Accelerate empty space");
  Param(settings_.visualiseVoxels, "visualise_voxels", 0);
  Param(settings_.useVoxelsForShadows, "use_voxels_for_shadows", 1);
  Param(settings_.voxelShadowThreshold, "voxel_shadow_threshold", 8.0, &sharpnessHint_)
      .Display("Transition dist. (voxels)");
  Gui(trGuiIndentClose);
  AddGuiAction({"use_voxel_buffer"},
               {"millions_of_voxels", "use_voxels_to_accelerate_empty_space", "visualise_voxels",
                "use_voxels_for_shadows"},
               2);
  AddGuiAction({"use_voxel_buffer", "use_voxels_for_shadows"}, {"voxel_shadow_threshold"}, 2);
}

void CloudLayerV2::DeclareExport() {
  Param(settings_.setExportResolution, "set_export_resolution", 0)
      .Display("Different resolution for VDB export");
  Param(settings_.millionsOfVoxelsForExport, "millions_of_voxels_for_export", 10.0)
      .Display("Millions of voxels for VDB");
  Param(settings_.setExportBounds, "set_export_bounds", 0).Display("Set bounds for VDB export");
  Param(settings_.exportBounds, "export_bounds", "");
  PushButton(analyzeButton_, "analyze_export_bounds_button");
  PushButton(resetButton_, "reset_export_bounds_button");
  AddGuiAction({"set_export_resolution"}, {"millions_of_voxels_for_export"}, 2);
  AddGuiAction({"set_export_bounds"}, {"export_bounds"}, 2);
}

void CloudLayerV2::DeclarePaintParams() {
  Param(settings_.enablePaint, "enable_paint", 0).Display("Paint (BETA)");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(settings_.paint, "paint", "").Display("Paint (BETA)");
  AddGuiAction({"enable_paint"}, {"paint"}, 3);
}
