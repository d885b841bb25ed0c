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
      Param(settings_.seed, "seed", 0L).About("Kept with the project; without effect in this class.");
    else
      Seed(settings_.seed);
  }
  if (!layout_.hideSeed) {
    Gui(trGuiButtonRowOpen);
    Gui(trGuiRowOpen);
    PushButton(randomiseButton_, "randomise_button");
    Gui(trGuiButtonRowClose);
  }
  Param(settings_.enablePrimary, "enable_primary", 1)
      .About("Shows the layer in what the camera sees directly.");
  Param(settings_.enableSecondary, "enable_secondary", 1)
      .About("Lets the layer count for all other rays: its shadows, reflections, and light from around.");
  Param(settings_.moveTexturesWithCloud, "move_textures_with_cloud", layout_.moveTextures)
      .Alias("local_texture_offset")
      .About("Measures its shaders from the local sphere's centre, so that a moved cloud keeps its shape.");
  const MaybeHidden hidden(this, true);
  Param(settings_.centre, "centre", trVector(0, -6378000, 0))
      .Alias("center")
      .About("Centre of the planet, metres. Follows the planet.");
  Param(settings_.radius, "radius", 6.378e6)
      .About("Radius of the planet's ground, metres. Follows the planet.");
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
    Param(settings_.altitude, "cloud_altitude", layout_.baseAltitude + layout_.depth / 2, &altitudeHint_)
        .About("Height of the layer's middle over the planet's radius, metres.");
  }
  {
    const MaybeHidden hidden(this, layout_.hideBaseAltitude);
    Param(settings_.baseAltitude, "cloud_base_altitude", layout_.baseAltitude, &altitudeHint_)
        .About("Height of the layer's base over the planet's radius, metres.");
  }
  Param(settings_.depth, "cloud_depth", layout_.depth, &altitudeHint_)
      .About("Thickness of the layer from base to top, metres.");
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
  Param(settings_.localSphere, "local_sphere", layout_.localSphere)
      .Display("Localise")
      .About("Keeps the layer within a sphere: for a single cloud, or a bank of them.");
  Gui(trGuiIndentOpen);
  Param(settings_.localSphereCentre, "local_sphere_centre", PlacedLocalSphereCentre())
      .Display("Centre")
      .About("Middle of that sphere, metres. Moved up or down, it takes the layer's altitude along.");
  Param(settings_.localSphereRadius, "local_sphere_radius", layout_.localSphereRadius, &localRadiusHint_)
      .Display("Radius")
      .About("Radius of that sphere, metres.");
  {
    const MaybeHidden hidden(this, layout_.hideCoverageControls);
    Param(settings_.localSphereFalloff, "local_sphere_falloff", 1.0)
        .Display("Falloff (0..1)")
        .About("Share of the radius, from the rim inwards, over which clouds thin out. 0 is a hard rim.");
    Param(settings_.localSphereValueAtRadius, "local_sphere_value_at_radius", -0.5, &valueHint_)
        .Display("Value at radius (-1..0)")
        .About("Density that is fallen to at the rim: -1 is clear, near 0 leaves wisps.");
  }
  Gui(trGuiIndentClose);
}

void CloudLayerV2::DeclareDensity() {
  settings_.densityShader.SetIsHidden(layout_.hideDensityLink);
  {
    const MaybeHidden hidden(this, layout_.hideDensityLink);
    Param(settings_.densityShader, "density_shader", "")
        .About("Shader whose value tells where clouds are: above 0 is inside of one, below 0 clear air.");
  }
  {
    const MaybeHidden hidden(this, layout_.hideDensityControls);
    Param(settings_.edgeSharpness, "edge_sharpness", 1.0, &sharpnessHint_)
        .About("How fast clouds become dense from their edge inwards. Low is mist, high is cumulus.");
    Param(settings_.density, "cloud_density", layout_.density, &densityHint_)
        .About("Extinction of full density, per metre: 0.1 hides all behind some tens of metres.");
  }
  const MaybeHidden hidden(this, layout_.hideCoverageControls);
  Param(settings_.coverageAdjust, "coverage_adjust", 0.0, &coverageHint_)
      .About("Shifts the density shader's values: above 0 clouds grow, below 0 they shrink.");
}

void CloudLayerV2::DeclareColourParams() {
  OpenTab("Colour", "colour_tab");
  Param(settings_.colour, "cloud_colour", kGrey)
      .Alias("cloud_color")
      .About("Share of light that the cloud scatters, a colour: 0.25 is white, lower is dirty.");
  RefreshColourInfo();
  Param(settings_.colourInfo, "colour_info_0", trString(settings_.colourInfo))
      .NotSaved()
      .About("Largest channel of the cloud's colour. Told, not set.");
  SetParamGuiEnabled("colour_info_0", false);
  settings_.scatteringColour = kGrey;
  if (layout_.hasScatteringColour)
    Param(settings_.scatteringColour, "scattering_colour", kGrey)
        .About(
            "The cloud's colour as its own surroundings see it: what light takes on as it goes on inside.");
}

void CloudLayerV2::DeclareLightingParams() {
  OpenTab("Lighting", "lighting_tab");
  Param(settings_.sunGlowAmount, "sun_glow_amount", layout_.sunGlowAmount, &sunGlowAmountHint_)
      .About("Strength of the bright edges towards the sun. 0 scatters light evenly.");
  Param(settings_.sunGlowPower, "sun_glow_power", 1.0, &sunGlowPowerHint_)
      .About("How closely that glow gathers round the sun: low is a wide shine, high a small one.");
  Param(settings_.lightPropagation, "light_propagation", layout_.lightPropagation, &propagationHint_)
      .About(
          "How much deeper light gets into clouds than straight rays do. More is softer and brighter "
          "inside.");
  Param(settings_.lightPropagationMix, "light_propagation_mix", layout_.lightPropagationMix)
      .About("How early on its way light begins to get deeper: 1 at once, small after much of the cloud.");
  Param(settings_.fakeInternalScattering, "fake_internal_scattering", layout_.fakeInternalScattering,
        &scatteringHint_)
      .About("Brightens dense insides against edges, for light scattered many times. 0 is off.");
  Param(settings_.viewFromSpace, "view_from_space_shading_model", 0)
      .Display("\"View from space\" shading model")
      .About("Another model of light, for whole decks of clouds seen from orbit.");
  Param(settings_.enviroLight, "enviro_light", 1.0)
      .About("Factor of the light that clouds get from sky and ground; 1 is what is really there.");
  Param(settings_.enviroLightTint, "enviro_light_tint", kWhite).About("Tint of that light.");
  Param(settings_.darkerUnresolvedScattering, "darker_unresolved_scattering",
        layout_.darkerUnresolvedScattering)
      .About("Dims light close to where rays begin, inside clouds, where it isn't resolved.");
  Param(settings_.anisotropicEnviroLight, "anisotropic_enviro_light", 1)
      .About("Lets the glow decide how much light from above and below goes on. Off, both count alike.");
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
    Param(settings_.altitudeOffsetFunction, "altitude_offset_function", "")
        .About("Shader whose brightness lifts the layer at a place.");
    Param(settings_.altitudeOffsetMultiplier, "altitude_offset_multiplier", 1.0)
        .Display("Function multiplier")
        .About("Metres by which white lifts it.");
    Param(settings_.depthModulator, "depth_modulator", "")
        .About("Shader whose brightness is the layer's thickness at a place, as a share of its depth.");
    Param(settings_.depthModulatorCentre, "depth_modulator_centre", 0.0)
        .Display("Centre (0..1)")
        .About(
            "Height that stays where thickness shrinks, as a share of the depth: 0 is the base, 1 the top.");
    Param(settings_.finalDensityModulator, "final_density_modulator", "")
        .About("Shader that multiplies the finished density, for wisps and holes.");
  }
  Param(settings_.directLightModulator, "direct_light_modulator", "")
      .About("Shader that multiplies the sunlight of the clouds.");
  Param(settings_.enviroLightModulator, "enviro_light_modulator", "")
      .About("Shader that multiplies the light that clouds get from around.");
  Param(settings_.ambientLightModulator, "ambient_light_modulator", "")
      .About("Shader that multiplies the ambient light.");
  Param(settings_.shadowFunction, "shadow_function", "")
      .About("Shader that keeps sunlight off the clouds: white is full shade.");
}

void CloudLayerV2::DeclareTweakParams() {
  Param(settings_.ambient, "ambient", kBlack).About("Light that the clouds have everywhere, by night too.");
  Param(settings_.fakeDarkPower, "fake_dark_power", 0.0, &darkPowerHint_)
      .Display("Fake terminator darkness")
      .About("Darkens clouds towards the night side. 0 is off; for planets seen from space.");
  Param(settings_.fakeDarkSharpness, "fake_dark_sharpness", 10.0, &darkSharpnessHint_)
      .About("How sharp the border of that darkness is.");
  Param(settings_.improvedLightingModel, "improved_lighting_model", layout_.improvedLightingModel)
      .About("The later model of light in clouds. Off, older projects look as they did.");
  const MaybeHidden hidden(this, layout_.hideCoverageControls);
  Param(settings_.taperTopAndBase, "taper_top_and_base", 1)
      .About("Thins clouds towards base and top, so that they are round. Off, they are cut flat.");
  Param(settings_.flatterBase, "flatter_base", 0)
      .About("Thins the base over less of the height: flat below, round above.");
  Param(settings_.baseWispiness, "base_wispiness", 0.0)
      .Alias("wispy_base")
      .About("Frays the base into fine wisps; 0 is off, more goes higher up.");
  Param(settings_.baseSoftness, "base_softness", 0.0)
      .Alias("softer_base")
      .About("Thins the density towards the base; 0 is off, more goes higher up.");
  Param(settings_.invertProfile, "invert_profile", 0).About("Turns that profile upside down.");
  Param(settings_.coverageGamma, "coverage_gamma", 1.0)
      .About("Below 1 clears thin parts and strengthens dense ones. From 1 on without effect.");
}

void CloudLayerV2::DeclareQualityParams() {
  OpenTab("Quality", "quality_tab");
  Param(settings_.renderingMethod, "rendering_method", 1L, &methodHint_)
      .About("3D marches through the layer; 2D takes a single step, for thin high clouds.");
  Param(settings_.quality, "quality", 0.25)
      .About(
          "Steps through the layer, against what its density asks for. Raise it where grain or steps show.");
  {
    const MaybeHidden hidden(this, true);
    Param(settings_.numberOfSamples, "number_of_samples", 8L)
        .About("Steps through the layer's depth. Follows the quality, and sets it.");
  }
  Param(settings_.sampleJitter, "sample_jitter", 1.0)
      .About("How far steps are shifted by chance, as a share of a step. 0 shows bands in place of grain.");
  Param(settings_.stepOptimisation, "step_optimisation", 0.0, &stepHint_)
      .About(
          "Lets steps grow in clear air, up to so many in one: faster, and small clouds may be missed. 0 is "
          "off.");
  DeclareShadowsFromSurfaces();
}

void CloudLayerV2::DeclareShadowsFromSurfaces() {
  Param(settings_.enableRayTracedShadows, "enable_ray_traced_shadows", 0)
      .Display("Receive shadows from surfaces")
      .About("Lets terrain and other surfaces cast shadows on the layer. Slower.");
  constexpr const char* kWarning[2][2] = {
      {"ray_traced_shadows_warning_0",
       "Enable shadows from surfaces only if you need terrain or other surfaces to"},
      {"ray_traced_shadows_warning_1",
       "cast visible shadows on clouds, or to hide lightsource glows behind surfaces."}};
  for (int line = 0; line < 2; ++line) {
    Param(settings_.shadowsWarning[line], kWarning[line][0], kWarning[line][1])
        .NotSaved()
        .About("A note of the sheet, without effect.");
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
  Param(settings_.useShadowMap, "use_2D_shadow_map", 0)
      .About(
          "Casts the layer's shadow by a map seen from straight above, in place of rays: faster and "
          "rougher.");
  Gui(trGuiIndentOpen);
  Param(settings_.shadowMapResolution, "shadow_map_resolution", tr2Vector(200, 200))
      .About("Pixels of that map, across the local sphere.");
  Param(settings_.shadowMapBlurRadius, "shadow_map_blur_radius", tr2Vector(2, 2))
      .About("How far the map is blurred, pixels.");
  Gui(trGuiIndentClose);
  AddGuiAction({"use_2D_shadow_map"}, {"shadow_map_resolution", "shadow_map_blur_radius"}, 2);
}

void CloudLayerV2::DeclareVoxels() {
  Param(settings_.useVoxelBuffer, "use_voxel_buffer", layout_.useVoxelBuffer)
      .About("Keeps the density in voxels, for shadows and empty air: faster, and takes memory.");
  Gui(trGuiIndentOpen);
  Param(settings_.millionsOfVoxels, "millions_of_voxels", 10.0, &voxelsHint_)
      .About("Size of that grid. More is finer and takes longer to fill; sets the resolution.");
  // Localised layers start with the grid that their box asks for.
  Param(settings_.voxelBufferResolution, "voxel_buffer_resolution",
        layout_.localSphere ? IdealVoxelResolution() : trVector(100, 20, 100))
      .About("Voxels along each edge. Follows the millions, and sets them.");
  Param(settings_.accelerateEmptySpace, "use_voxels_to_accelerate_empty_space", layout_.accelerateEmptySpace)
      .Display("Accelerate empty space")
      .About("Passes over air that the voxels tell is clear.");
  Param(settings_.visualiseVoxels, "visualise_voxels", 0)
      .About("Shows the voxels in place of the cloud, to judge whether they are fine enough.");
  Param(settings_.useVoxelsForShadows, "use_voxels_for_shadows", 1)
      .About("Takes densities along shadow rays from the voxels.");
  Param(settings_.voxelShadowThreshold, "voxel_shadow_threshold", 8.0, &sharpnessHint_)
      .Display("Transition dist. (voxels)")
      .About("Distance at which shadow rays go over to them, in voxels. Nearby the cloud itself is asked.");
  Gui(trGuiIndentClose);
  AddGuiAction({"use_voxel_buffer"},
               {"millions_of_voxels", "use_voxels_to_accelerate_empty_space", "visualise_voxels",
                "use_voxels_for_shadows"},
               2);
  AddGuiAction({"use_voxel_buffer", "use_voxels_for_shadows"}, {"voxel_shadow_threshold"}, 2);
}

void CloudLayerV2::DeclareExport() {
  Param(settings_.setExportResolution, "set_export_resolution", 0)
      .Display("Different resolution for VDB export")
      .About("Gives exported VDB files another size than the voxels have.");
  Param(settings_.millionsOfVoxelsForExport, "millions_of_voxels_for_export", 10.0)
      .Display("Millions of voxels for VDB")
      .About("Voxels of an exported VDB file, millions.");
  Param(settings_.setExportBounds, "set_export_bounds", 0)
      .Display("Set bounds for VDB export")
      .About("Exports what is within a box in place of all the local cloud.");
  Param(settings_.exportBounds, "export_bounds", "").About("The object whose box that is.");
  PushButton(analyzeButton_, "analyze_export_bounds_button");
  PushButton(resetButton_, "reset_export_bounds_button");
  AddGuiAction({"set_export_resolution"}, {"millions_of_voxels_for_export"}, 2);
  AddGuiAction({"set_export_bounds"}, {"export_bounds"}, 2);
}

void CloudLayerV2::DeclarePaintParams() {
  Param(settings_.enablePaint, "enable_paint", 0)
      .Display("Paint (BETA)")
      .About("Lets paint on the sky take clouds away and add some.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(settings_.paint, "paint", "")
      .Display("Paint (BETA)")
      .About("The sky paint, or a merge of several: red takes clouds away, green adds them.");
  AddGuiAction({"enable_paint"}, {"paint"}, 3);
}
