// The parameters of the power fractal, in the project file's order, and the menus and ranges of its sheet.
#include "fractal/power_fractal_shader.h"

/// Where a cloud's defaults differ from a landscape's.
struct PowerFractalShaderV3Base::Defaults {
  double featureScale, leadInScale, smallestScale;
  long noiseOctaves;
  unsigned char applyDisplacement;
  double buoyancy;
  unsigned char lessWarp, verticalWarp;
};

void PowerFractalShaderV3Base::DeclareParams(Form form) {
  static constexpr Defaults kLandscape = {1.0, 1000.0, 0.01, 19, 1, 0.25, 0, 0};
  static constexpr Defaults kCloud = {500.0, 20000.0, 10.0, 13, 0, 0.5, 1, 1};
  const Defaults& defaults = form == Form::kCloud ? kCloud : kLandscape;
  form_ = form;
  SetRanges();
  SetMenus();

  Gui(trGuiBlockOpen);
  Seed(settings_.seed);
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(randomiseButton_, "randomise_button");
  Gui(trGuiButtonRowClose);
  Gui(trGuiBlockClose);
  DeclareScale(defaults);
  DeclareColour();
  DeclareDisplacement(defaults);
  DeclareNoise(defaults);
  if (!IsElder()) {
    DeclareWarping(defaults);
    DeclareAnimation();
  }
  mask_.Declare(this, 0);

  UpdateDerived();
}

void PowerFractalShaderV3Base::DeclareScale(const Defaults& defaults) {
  Gui(trGuiRule);
  GuiTab("Scale", "scale_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.featureScale, "feature_scale", defaults.featureScale, &featureHint_);
  Param(settings_.leadInScale, "lead-in_scale", defaults.leadInScale, &leadInHint_);
  Param(settings_.smallestScale, "smallest_scale", defaults.smallestScale, &smallestHint_);
  Param(settings_.noiseOctaves, "noise_octaves", defaults.noiseOctaves);
  Gui(trGuiBlockClose);
  if (IsElder()) {
    settings_.globalVarDamper = 1.0;
    settings_.obeySmoothingFilter = 1;
    Param(settings_.noiseStretch, "noise_stretch_XYZ", trVector(1, 1, 1));
    return;
  }
  Gui(trGuiHiddenOpen);
  Param(settings_.dampLeadIn, "damp_lead-in", 0).NotSaved();
  Param(settings_.dampLeadInDryMix, "damp_lead-in_dry_mix", 0.5).NotSaved();
  // Landscapes have these two a second time, on the same members: indices of later parameters count on it.
  if (!IsCloud()) {
    Param(settings_.dampLeadIn, "damp_lead-in", 0).NotSaved();
    Param(settings_.dampLeadInDryMix, "damp_lead-in_dry_mix", 0.5).NotSaved();
  }
  Param(settings_.globalVarDamper, "global_var_damper", 1.0).NotSaved();
  Gui(trGuiHiddenClose);
  Gui(trGuiGap);
  Param(settings_.obeySmoothingFilter, "obey_smoothing_filter", 1)
      .Display("Obey downstream smoothing filters");
  Gui(trGuiGap);
  Param(settings_.noiseStretch, "noise_stretch_XYZ", trVector(1, 1, 1));
}

void PowerFractalShaderV3Base::DeclareColour() {
  Gui(trGuiRule);
  GuiTab(IsCloud() ? "Density" : "Colour", "colour_tab");
  if (IsCloud()) Gui(trGuiHiddenOpen);
  Param(applyHighColour_, "apply_high_colour", 1).Alias("apply_high_color").ColourOnly();
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(highColour_, "high_colour", trRgbLinear709(1.0f)).Alias("high_color").ColourOnly();
  Param(applyLowColour_, "apply_low_colour", 0).Alias("apply_low_color").ColourOnly();
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(lowColour_, "low_colour", trRgbLinear709(0.0f)).Alias("low_color").ColourOnly();
  if (IsCloud()) Gui(trGuiHiddenClose);
  if (IsCloud()) return DeclareDensity();
  Gui(trGuiBlockOpen);
  Param(settings_.colourContrast, "colour_contrast", 0.5).Alias("color_contrast").ColourOnly();
  Param(settings_.colourOffset, "colour_offset", 0.0, &offsetHint_).Alias("color_offset").ColourOnly();
  Param(settings_.colourRoughness, "colour_roughness", 5.0, &roughnessHint_)
      .Alias("color_roughness")
      .ColourOnly();
  Gui(trGuiBlockClose);
  Param(settings_.clampHighColour, "clamp_high_colour", 1).Alias("clamp_high_color").ColourOnly();
  Param(settings_.clampLowColour, "clamp_low_colour", 1).Alias("clamp_low_color").ColourOnly();
}

void PowerFractalShaderV3Base::DeclareDensity() {
  Gui(trGuiBlockOpen);
  Param(settings_.colourContrast, "contrast", 1.0);
  Param(coverageAdjust_, "coverage_adjust", 0.0, &offsetHint_);
  Param(settings_.colourRoughness, "roughness", 1.5, &roughnessHint_);
  Gui(trGuiBlockClose);
  Param(settings_.clampHighColour, "clamp_high", 0);
  Param(settings_.clampLowColour, "clamp_low", 0);
}

void PowerFractalShaderV3Base::DeclareDisplacement(const Defaults& defaults) {
  if (IsCloud()) {
    Gui(trGuiHiddenOpen);
  } else {
    Gui(trGuiRule);
    GuiTab("Displacement", "displacement_tab");
  }
  Param(applyDisplacement_, "apply_displacement", defaults.applyDisplacement);
  Gui(trGuiIndentOpen);
  Gui(trGuiBlockOpen);
  displacementDirection_.Declare(this);
  Param(settings_.displacementAmplitude, "displacement_amplitude", 1.0, &amplitudeHint_);
  Param(settings_.displacementOffset, "displacement_offset", 0.0, &amplitudeHint_);
  Param(settings_.displacementRoughness, "displacement_roughness", 1.0);
  Param(settings_.displacementSpikeLimit, "displacement_spike_limit", 1.0);
  Gui(trGuiBlockClose);
  if (!IsElder()) Param(settings_.continueSpikeLimit, "continue_spike_limit", 0);
  Gui(trGuiGap);
  Param(settings_.adjustCoastline, "adjust_coastline", 0);
  Gui(trGuiIndentOpen);
  Param(settings_.coastlineAltitude, "coastline_altitude", 0.0, &amplitudeHint_);
  Param(settings_.coastlineSmoothing, "coastline_smoothing", 30.0, &coastlineSmoothingHint_);
  Gui(trGuiIndentClose);
  Gui(trGuiIndentClose);
  if (IsCloud()) Gui(trGuiHiddenClose);
}

void PowerFractalShaderV3Base::DeclareNoise(const Defaults& defaults) {
  Gui(trGuiRule);
  GuiTab("Tweak Noise", "tweak_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.noiseFlavour, "noise_flavour", kPerlin, &flavourHint_);
  // New nodes get softer folds; a project from before these parameters keeps its hard ones.
  if (!IsElder()) {
    Param(settings_.ridgeSmoothing, "ridge_smoothing", 0.0);
    Param(settings_.gullySmoothing, "gully_smoothing", 0.0);
  }
  Gui(trGuiGap);
  Param(settings_.noiseVariation, "noise_variation", 1.0, &variationHint_);
  Param(settings_.variationMethod, "variation_method", kMultiScaleModulator, &methodHint_);
  Param(settings_.buoyancyFromVariation, "buoyancy_from_variation", defaults.buoyancy, &buoyancyHint_);
  if (!IsElder()) Param(settings_.clumpingOfVariation, "clumping_of_variation", 0.0);
  Gui(trGuiBlockClose);
  if (IsElder()) return;
  Gui(trGuiRareGap);
  Param(settings_.betterColourContinuity, "better_colour_continuity", 0).ColourOnly();
  Param(settings_.betterDisplacementContinuity, "better_displacement_continuity", 0);
}

void PowerFractalShaderV3Base::DeclareWarping(const Defaults& defaults) {
  Gui(trGuiRule);
  GuiTab("Warping", "warping_tab");
  if (IsCloud()) Gui(trGuiHiddenOpen);
  Param(settings_.distortByNormal, "distort_by_normal", 0).ColourOnly();
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(settings_.distortionByNormal, "distortion_by_normal", 5.0, &distortionHint_).ColourOnly();
  if (IsCloud()) Gui(trGuiHiddenClose);
  Gui(trGuiGap);
  Gui(trGuiBlockOpen);
  Param(settings_.leadInWarpEffect, "lead-in_warp_effect", 0, &warpEffectHint_);
  Param(settings_.leadInWarpAmount, "lead-in_warp_amount", 0.5, &warpHint_);
  Gui(trGuiBlockClose);
  Param(settings_.lessWarpAtFeatureScale, "less_warp_at_feature_scale", defaults.lessWarp);
  Param(settings_.allowVerticalWarp, "allow_vertical_warp", defaults.verticalWarp);
}

void PowerFractalShaderV3Base::DeclareAnimation() {
  Gui(trGuiRule);
  GuiTab("Animation", "animation_tab");
  Param(settings_.fourDNoise, "four-d_noise", 0).Display("4D noise");
  Gui(trGuiIndentOpen);
  Param(settings_.fourDNoiseSpeed, "four-d_noise_speed", 0.1).Display("4D noise speed");
  Param(settings_.referenceFrameNumber, "reference_frame_number", 0);
  Gui(trGuiIndentClose);
  Gui(trGuiGap);
}

void PowerFractalShaderV3Base::SetRanges() {
  constexpr double kMetres = 1e6;
  SetRange(featureHint_, this, {.min = 0.0, .max = kMetres, .focusPower = 4.0});
  SetRange(leadInHint_, this, {.min = 0.0, .max = kMetres, .focusPower = 4.0});
  SetRange(smallestHint_, this, {.min = 0.0, .max = 1000.0, .focusPower = 4.0});
  SetRange(offsetHint_, this, {.min = -2.0, .max = 2.0});
  SetRange(roughnessHint_, this, {.max = 10.0});
  SetRange(amplitudeHint_, this, {.max = kMetres, .focusPower = 4.0});
  SetRange(coastlineSmoothingHint_, this, {.max = 100.0});
  SetRange(variationHint_, this, {.max = 4.0});
  SetRange(buoyancyHint_, this, {.min = -1.0, .max = 1.0});
  SetRange(distortionHint_, this, {.max = 10.0});
  SetRange(warpHint_, this, {.max = 2.0});
}

void PowerFractalShaderV3Base::SetMenus() {
  SetMenu(flavourHint_, this,
          {{"Perlin", kPerlin},
           {"Perlin billows", kPerlinBillows},
           {"Perlin ridges", kPerlinRidges},
           {"Perlin mix 1", kPerlinMix1},
           {"Perlin mix 2", kPerlinMix2},
           {"Voronoi billows", kVoronoiBillows},
           {"Voronoi ridges", kVoronoiRidges}});
  SetMenu(methodHint_, this,
          {{"Clamped multifractal", kClampedMultifractal},
           {"Unclamped multifractal", kUnclampedMultifractal},
           {"Multi-scale modulator", kMultiScaleModulator}});
  SetMenu(warpEffectHint_, this, {{"None", 0}, {"1 Octave Perlin warp", 1}});
}
