// The planet atmosphere's parameters, names of older projects, and life between renders.
#include "atmosphere/planet_atmosphere.h"

#include "core/idioms.h"

namespace {

const trManRgb kBlueskyDensityColour(0.2158f, 0.4535f, 1.0f, true);

/// What is left of white after an optical depth of `colour`.
trManRgb Decay(const trManRgb& colour) {
  return {std::exp(-colour.r), std::exp(-colour.g), std::exp(-colour.b), true};
}

/// Side of the voxel cache of sky light in cells, and how many samples a cell may gather over a progressive
/// render.
constexpr int kEnviroCells = 20;
constexpr int kEnviroSamples = 10000;

}  // namespace

PlanetAtmosphere::PlanetAtmosphere() : resetTweaksButton_(this) {
  DeclareTrue("is_atmosphere_related");
  SetRange(densityHint_, this, {.min = 0, .max = 100, .focusPower = 3.321, .focusValue = 0});
  SetRange(heightHint_, this, {.min = 0, .max = 20000});
  SetRange(ceilingAdjustHint_, this, {.min = 5, .max = 9});
  SetRange(limitHint_, this, {.min = -100000, .max = 100000});
  SetRange(glowAmountHint_, this, {.max = 4, .focusPower = 2});
  SetRange(glowPowerHint_, this, {.max = 1.5});
  SetRange(darkPowerHint_, this, {.max = 2});
  SetRange(darkSharpnessHint_, this, {.max = 32});
  SetRange(samplesHint_, this, {.min = 0, .max = 64});

  Param(enablePrimary_, "enable_primary", 1).About("Shows the air in what the camera sees directly.");
  Param(enableSecondary_, "enable_secondary", 1)
      .About("Lets the air count for all other rays: light of suns, reflections, and light from around.");
  Param(centre_, "centre", trVector())
      .Alias("center")
      .About("Centre of the planet, metres. Follows the planet.");
  Param(radius_, "radius", 6378000.0).About("Radius of the planet's ground, metres. Follows the planet.");
  Param(seed_, "seed", 0L).About("Kept with the project; without effect.");
  DeclareMain();
  DeclareHeights();
  DeclareLighting();
  Gui(trGuiRule);
  GuiTab("Functions", "functions_tab");
  Param(shadowFunction_, "shadow_function", "")
      .About("Shader that keeps sunlight off the air above it: white is full shade.");
  DeclareTweaks();
  DeclareQuality();
  Retired("sample_jitter", "1");
  Retired("pre-apply_atmosphere", "0");
  Retired("pre-apply_atmosphere_name", "");
  Retired("post-apply_atmosphere", "0");
  Retired("post-apply_atmosphere_name", "");
  UpdateDerived();
}

void PlanetAtmosphere::DeclareMain() {
  Gui(trGuiRule);
  GuiTab("Main", "basic_tab");
  Param(hazeDensity_, "haze_density", 1.0, &densityHint_)
      .About("Amount of haze near the ground. 0 is crystal air, more hides far hills.");
  Param(hazeHorizonColour_, "haze_horizon_colour", trManRgb(0.25f, 0.25f, 0.25f))
      .Alias("haze_horizon_color")
      .About("Colour that deep haze takes on, in white light.");
  Param(blueskyDensity_, "bluesky_density", 2.5, &densityHint_)
      .About(
          "Amount of blue air. More gives a brighter, deeper sky and redder sunsets; moves the red sky's "
          "decay along.");
  Param(blueskyHorizonColour_, "bluesky_horizon_colour", trManRgb(0.2f, 0.25f, 0.3f))
      .Alias("bluesky_horizon_color")
      .About("Colour that very deep blue air takes on, as at the horizon. Sets the additive colour.");
  Param(blueskyAdditive_, "bluesky_additive", 0.75, &densityHint_)
      .About(
          "Brightness of thin blue air, as overhead. Follows density and horizon colour, and sets the "
          "latter.");
  Param(blueskyAdditiveColour_, "bluesky_additive_colour", trManRgb(0.1438666731f, 0.3779166639f, 1.0f, true))
      .About("Colour of thin blue air, as overhead. Follows the horizon colour, and sets it.");
  Param(redskyDecay_, "redsky_decay", 2.5, &densityHint_)
      .About(
          "How strongly air reddens light on its way: the same number as the blue sky's density, which "
          "follows it.");
}

void PlanetAtmosphere::DeclareHeights() {
  Gui(trGuiRule);
  GuiTab("Height control", "height_tab");
  // Older projects knew one height for both media.
  Param(hazeExpHeight_, "haze_exp_height", 1200.0, &heightHint_)
      .Alias("exp_height")
      .About("Height over which haze thins to 37 %, metres. Low makes ground mist.");
  Param(blueskyExpHeight_, "bluesky_exp_height", 8000.0, &heightHint_)
      .Alias("exp_height")
      .About("Height over which blue air thins to 37 %, metres; the Earth's has 8000.");
  Param(ceilingAdjust_, "ceiling_adjust", 7.0, &ceilingAdjustHint_)
      .About("Ceiling as a multiple of the greater of the two heights. Higher keeps more of the thin air.");
  Param(ceiling_, "ceiling", 56000.0, &limitHint_)
      .About("Height at which the air ends, metres. Follows the heights above, and sets the multiple.");
  Param(floor_, "floor", -16000.0, &limitHint_)
      .About(
          "Height below which air no longer thickens and lets no light through, metres. Keep it below the "
          "deepest ground.");
}

void PlanetAtmosphere::DeclareLighting() {
  Gui(trGuiRule);
  GuiTab("Lighting", "lighting_tab");
  Param(hazeGlowAmount_, "haze_glow_amount", 1.5, &glowAmountHint_)
      .Display("Haze sun glow amount")
      .About("Strength of the haze's glow round the sun. 0 is an even haze.");
  Param(hazeGlowPower_, "haze_glow_power", 1.0, &glowPowerHint_)
      .Display("Haze sun glow power")
      .About("How closely that glow gathers round the sun: low is a wide shine, high a small one.");
  Param(blueskyGlowAmount_, "bluesky_glow_amount", 0.0, &glowAmountHint_)
      .About("Strength of the blue air's glow round the sun. Not with the Rayleigh phase function.");
  Param(blueskyGlowPower_, "bluesky_glow_power", 0.75, &glowPowerHint_)
      .About("How closely that glow gathers round the sun. Not with the Rayleigh phase function.");
  Param(rayleighPhaseFunction_, "rayleigh_phase_function", 0)
      .Display("Rayleigh phase function for bluesky component")
      .About(
          "Scatters in blue air as molecules do, in place of a glow: the sky is darkest square to the sun.");
  Param(enviroLight_, "enviro_light", 0.5)
      .About("Factor of the light that air gets from sky and ground; 1 is what is really there.");
  Param(enviroLightTint_, "enviro_light_tint", trManRgb(1, 1, 1)).About("Tint of that light.");
  Param(anisotropicEnviroLight_, "anisotropic_enviro_light", 1)
      .About("Lets the glow decide how much light from above and below goes on. Off, both count alike.");
  Param(betterCacheRadius_, "better_cache_radius", 1)
      .About("Averages that light over smaller neighbourhoods: finer and a little slower.");
}

void PlanetAtmosphere::DeclareTweaks() {
  Gui(trGuiRule);
  GuiTab("Tweaks", "tweak_tab");
  Param(ambient_, "ambient", trManRgb()).About("Light that the air has everywhere, by night too.");
  Param(fakeDarkPower_, "fake_dark_power", 0.0, &darkPowerHint_)
      .Display("Fake terminator darkness")
      .About("Darkens the air towards the night side. 0 is off; for planets seen from space.");
  Param(fakeDarkSharpness_, "fake_dark_sharpness", 10.0, &darkSharpnessHint_)
      .About("How sharp the border of that darkness is.");
  Param(blueskyDensityColour_, "bluesky_density_colour", kBlueskyDensityColour)
      .Alias("bluesky_density_color")
      .About(
          "How strongly blue air takes out each colour: blue the most. Change it for other planets' skies.");
  Param(redskyDecayColour_, "redsky_decay_colour", Decay(kBlueskyDensityColour))
      .About(
          "What blue air leaves of white light: the same told the other way round; each follows the other.");
  Param(ozoneFactor_, "ozone_factor", 0.0)
      .About("Amount of ozone, which keeps dusk blue. 0.5 in new atmospheres, 0 is none.");
  Param(improvedGlowModel_, "improved_glow_model", 0)
      .About("The later model of glow. Off, older projects look as they did.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(resetTweaksButton_, "reset_tweaks_button");
  Gui(trGuiButtonRowClose);
}

void PlanetAtmosphere::DeclareQuality() {
  Gui(trGuiRule);
  GuiTab("Quality", "quality_tab");
  Param(numberOfSamples_, "number_of_samples", 16L, &samplesHint_)
      .About("Samples along a ray. Raise it where the air is grainy or banded.");
  Param(adjustToDistance_, "adjust_to_distance", 1)
      .About("Takes more samples on long ways and fewer on short ones.");
  Param(enableRayTracedShadows_, "enable_ray_traced_shadows", 0)
      .Display("Receive shadows from surfaces")
      .About("Lets surfaces cast shadows into the air, for shafts of light and suns behind hills. Slower.");
  constexpr const char* kWarning[3][2] = {
      {"ray_traced_shadows_warning_0",
       "Enable shadows from surfaces only if you need terrain or other surfaces to"},
      {"ray_traced_shadows_warning_1",
       "cast visible shadows into the atmosphere, or to hide lightsource glows behind"},
      {"ray_traced_shadows_warning_2",
       "surfaces (e.g. to hide the sun behind a mountain). May be slow to calculate."}};
  for (int line = 0; line < 3; ++line) {
    Param(shadowsWarning_[line], kWarning[line][0], kWarning[line][1])
        .NotSaved()
        .About("A note of the sheet, without effect.");
    SetParamGuiEnabled(kWarning[line][0], false);
  }
}

long PlanetAtmosphere::OnFirstCreate() {
  if (!trAtmosShader::OnFirstCreate()) return 0;
  SetParam("rayleigh_phase_function", 1, this);
  SetParam("enviro_light", 1.0, this);
  SetParam("ozone_factor", 0.5, this);
  SetParam("improved_glow_model", 1, this);
  return 1;
}

long PlanetAtmosphere::ResetTweaks() {
  SetParam("ambient", trManRgb(), trWhoUserIndirect);
  SetParam("fake_dark_power", 0.0, trWhoUserIndirect);
  SetParam("fake_dark_sharpness", 10.0, trWhoUserIndirect);
  SetParam("bluesky_density_colour", kBlueskyDensityColour, trWhoUserIndirect);
  SetParam("redsky_decay_colour", Decay(kBlueskyDensityColour), trWhoUserIndirect);
  SetParam("ozone_factor", 0.5, trWhoUserIndirect);
  SetParam("improved_glow_model", 1, trWhoUserIndirect);
  return 1;
}

long PlanetAtmosphere::PrepareAtmosphere(trRenderingInterface& rendering) {
  // The linked shader may have come or gone without a change here.
  derivedDirty_.store(true, std::memory_order_release);
  if (rendering.RenderContext() != trRenderContext::kProgressive || !IsEnabled()) return 1;
  const double edge = 2.0 * (std::fabs(ceiling_) + std::fabs(radius_));
  enviroProjector_.Init(trBoundingBox::FromCentre(centre_, {edge, edge, edge}));
  enviroCache_.InitVoxelBuffer(&enviroProjector_, kEnviroCells, kEnviroCells, kEnviroCells, kEnviroSamples,
                               Name() + ".indirectLightingVoxelCache");
  return 1;
}

void PlanetAtmosphere::FreeIntegrationData(trAtomicIntegrator&, void* rayData) {
  delete static_cast<AtmosphereRayData*>(rayData);
}

trVolumeShape PlanetAtmosphere::Shape() const {
  trVolumeShape shape;
  shape.centre = centre_;
  shape.innerRadius = std::max(0.0, radius_ + floor_);
  shape.outerRadius = std::max(0.0, radius_ + std::max(floor_, ceiling_));
  shape.isSymmetric = true;
  const trBase* shadow = shadowFunction_.LinkedNode(true);
  shape.hasModulatedLight = shadow && shadow->IsTrue("is_shader");
  return shape;
}
