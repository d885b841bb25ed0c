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
  Param(settings_.featureScale, "feature_scale", defaults.featureScale, &featureHint_)
      .About(
          "Size of the main forms, metres. Octaves between it and the lead-in scale are as strong, finer "
          "ones weaken.");
  Param(settings_.leadInScale, "lead-in_scale", defaults.leadInScale, &leadInHint_)
      .About(
          "Size of the largest forms, metres; twice the feature scale at least. Far above it, regions "
          "differ.");
  Param(settings_.smallestScale, "smallest_scale", defaults.smallestScale, &smallestHint_)
      .About("Size of the finest forms, metres; sets the octaves. Lower it where the camera comes close.");
  Param(settings_.noiseOctaves, "noise_octaves", defaults.noiseOctaves)
      .About(
          "How many sizes of form are added up, each 1.92 times finer. Follows the scales, and sets the "
          "smallest.");
  Gui(trGuiBlockClose);
  if (IsElder()) {
    settings_.globalVarDamper = 1.0;
    settings_.obeySmoothingFilter = 1;
    DeclareStretch();
    return;
  }
  Gui(trGuiHiddenOpen);
  Param(settings_.dampLeadIn, "damp_lead-in", 0)
      .NotSaved()
      .About(
          "Weakens what is larger than the feature scale in the colour. Hidden: for nodes that make "
          "fractals.");
  Param(settings_.dampLeadInDryMix, "damp_lead-in_dry_mix", 0.5)
      .NotSaved()
      .About("Share, 0 to 1, that damped octaves keep at least. Hidden.");
  // Landscapes have these two a second time, on the same members: indices of later parameters count on it.
  if (!IsCloud()) {
    Param(settings_.dampLeadIn, "damp_lead-in", 0)
        .NotSaved()
        .About(
            "Weakens what is larger than the feature scale in the colour. Hidden: for nodes that make "
            "fractals.");
    Param(settings_.dampLeadInDryMix, "damp_lead-in_dry_mix", 0.5)
        .NotSaved()
        .About("Share, 0 to 1, that damped octaves keep at least. Hidden.");
  }
  Param(settings_.globalVarDamper, "global_var_damper", 1.0)
      .NotSaved()
      .About("How much of the variation goes on from larger to finer octaves; 1 is all. Hidden.");
  Gui(trGuiHiddenClose);
  Gui(trGuiGap);
  Param(settings_.obeySmoothingFilter, "obey_smoothing_filter", 1)
      .Display("Obey downstream smoothing filters")
      .About(
          "Leaves out detail finer than a pixel, or than what a node downstream smooths. Off, it may "
          "flicker.");
  Gui(trGuiGap);
  DeclareStretch();
}

void PowerFractalShaderV3Base::DeclareStretch() {
  Param(settings_.noiseStretch, "noise_stretch_XYZ", trVector(1, 1, 1))
      .About("Stretches the forms along each axis of the texture; 2 makes them twice as long.");
}

void PowerFractalShaderV3Base::DeclareColour() {
  Gui(trGuiRule);
  GuiTab(IsCloud() ? "Density" : "Colour", "colour_tab");
  if (IsCloud()) Gui(trGuiHiddenOpen);
  Param(applyHighColour_, "apply_high_colour", 1)
      .Alias("apply_high_color")
      .ColourOnly()
      .About("Gives the fractal's high values a colour. Off, what lies beneath shows there.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(highColour_, "high_colour", trRgbLinear709(1.0f))
      .Alias("high_color")
      .ColourOnly()
      .About("Colour of the value 1.");
  Param(applyLowColour_, "apply_low_colour", 0)
      .Alias("apply_low_color")
      .ColourOnly()
      .About("Gives the fractal's low values a colour. Off, what lies beneath shows there.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(lowColour_, "low_colour", trRgbLinear709(0.0f))
      .Alias("low_color")
      .ColourOnly()
      .About("Colour of the value 0.");
  if (IsCloud()) Gui(trGuiHiddenClose);
  if (IsCloud()) return DeclareDensity();
  Gui(trGuiBlockOpen);
  Param(settings_.colourContrast, "colour_contrast", 0.5)
      .Alias("color_contrast")
      .ColourOnly()
      .About("How far values swing about their middle. More makes the border of the two colours sharper.");
  Param(settings_.colourOffset, "colour_offset", 0.0, &offsetHint_)
      .Alias("color_offset")
      .ColourOnly()
      .About("Shifts all values: above 0 the high colour covers more, below 0 the low one.");
  Param(settings_.colourRoughness, "colour_roughness", 5.0, &roughnessHint_)
      .Alias("color_roughness")
      .ColourOnly()
      .About(
          "How slowly finer octaves weaken: high gives speckles down to the finest, low gives soft patches.");
  Gui(trGuiBlockClose);
  Param(settings_.clampHighColour, "clamp_high_colour", 1)
      .Alias("clamp_high_color")
      .ColourOnly()
      .About("Keeps values at 1 at most. Turn it off for masks and densities that go on above.");
  Param(settings_.clampLowColour, "clamp_low_colour", 1)
      .Alias("clamp_low_color")
      .ColourOnly()
      .About("Keeps values at 0 at least. Turn it off for masks and densities that go on below.");
}

void PowerFractalShaderV3Base::DeclareDensity() {
  Gui(trGuiBlockOpen);
  Param(settings_.colourContrast, "contrast", 1.0)
      .About(
          "How far densities swing about their middle. More makes clouds denser inside, with harder edges.");
  Param(coverageAdjust_, "coverage_adjust", 0.0, &offsetHint_)
      .About("Shifts all densities: above 0 clouds cover more of the sky, below 0 less.");
  Param(settings_.colourRoughness, "roughness", 1.5, &roughnessHint_)
      .About("How slowly finer octaves weaken: high makes torn clouds, low soft ones.");
  Gui(trGuiBlockClose);
  Param(settings_.clampHighColour, "clamp_high", 0).About("Keeps densities at 1 at most.");
  Param(settings_.clampLowColour, "clamp_low", 0).About("Keeps densities at 0 at least.");
}

void PowerFractalShaderV3Base::DeclareDisplacement(const Defaults& defaults) {
  if (IsCloud()) {
    Gui(trGuiHiddenOpen);
  } else {
    Gui(trGuiRule);
    GuiTab("Displacement", "displacement_tab");
  }
  Param(applyDisplacement_, "apply_displacement", defaults.applyDisplacement)
      .About("Moves the surface by the fractal. Off, it gives colour alone.");
  Gui(trGuiIndentOpen);
  Gui(trGuiBlockOpen);
  displacementDirection_.Declare(this);
  Param(settings_.displacementAmplitude, "displacement_amplitude", 1.0, &amplitudeHint_)
      .About("Height of the main forms, metres. Below 0 they go down.");
  Param(settings_.displacementOffset, "displacement_offset", 0.0, &amplitudeHint_)
      .About("Added everywhere, metres: raises or sinks the whole surface.");
  Param(settings_.displacementRoughness, "displacement_roughness", 1.0)
      .About("How slowly finer octaves weaken: above 1 is jagged, below 1 smooth.");
  Param(settings_.displacementSpikeLimit, "displacement_spike_limit", 1.0)
      .About("How high an octave may rise against its own size. Lower it where needles stand out.");
  Gui(trGuiBlockClose);
  if (!IsElder())
    Param(settings_.continueSpikeLimit, "continue_spike_limit", 0)
        .About("Calms the finer octaves as well where that limit is met, so that cut needles don't bristle.");
  Gui(trGuiGap);
  Param(settings_.adjustCoastline, "adjust_coastline", 0)
      .About("Calms ground that lies low, for smooth shores and sea floors.");
  Gui(trGuiIndentOpen);
  Param(settings_.coastlineAltitude, "coastline_altitude", 0.0, &amplitudeHint_)
      .About("Displacement below which ground is calmed, metres: put the water there.");
  Param(settings_.coastlineSmoothing, "coastline_smoothing", 30.0, &coastlineSmoothingHint_)
      .About("How fast the ground becomes calm below that altitude.");
  Gui(trGuiIndentClose);
  Gui(trGuiIndentClose);
  if (IsCloud()) Gui(trGuiHiddenClose);
}

void PowerFractalShaderV3Base::DeclareNoise(const Defaults& defaults) {
  Gui(trGuiRule);
  GuiTab("Tweak Noise", "tweak_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.noiseFlavour, "noise_flavour", kPerlin, &flavourHint_)
      .About(
          "Shape of the forms: Perlin rolls, billows are rounded over sharp valleys, ridges have crests, "
          "Voronoi has cells.");
  // New nodes get softer folds; a project from before these parameters keeps its hard ones.
  if (!IsElder()) {
    Param(settings_.ridgeSmoothing, "ridge_smoothing", 0.0)
        .About("Rounds the crests of ridges and mixes. 0 leaves them sharp.");
    Param(settings_.gullySmoothing, "gully_smoothing", 0.0)
        .About("Rounds the valleys of billows and mixes. 0 leaves them sharp.");
  }
  Gui(trGuiGap);
  Param(settings_.noiseVariation, "noise_variation", 1.0, &variationHint_)
      .About(
          "How much places differ: 0 is equally rough everywhere, more puts calm plains beside wild peaks.");
  Param(settings_.variationMethod, "variation_method", kMultiScaleModulator, &methodHint_)
      .About("What makes a place rough: its height, as in multifractals, or a second noise, the modulator.");
  Param(settings_.buoyancyFromVariation, "buoyancy_from_variation", defaults.buoyancy, &buoyancyHint_)
      .About("Lifts rough places over calm ones; below 0 sinks them. Counts with the multi-scale modulator.");
  if (!IsElder())
    Param(settings_.clumpingOfVariation, "clumping_of_variation", 0.0)
        .About("Above 0, calm and rough places keep together in larger regions; below 0 they mix.");
  Gui(trGuiBlockClose);
  if (IsElder()) return;
  Gui(trGuiRareGap);
  Param(settings_.betterColourContinuity, "better_colour_continuity", 0)
      .ColourOnly()
      .About("More exact arithmetic for colours, where banding or fine steps show. A little slower.");
  Param(settings_.betterDisplacementContinuity, "better_displacement_continuity", 0)
      .About("More exact arithmetic for displacement, where fine steps show. A little slower.");
}

void PowerFractalShaderV3Base::DeclareWarping(const Defaults& defaults) {
  Gui(trGuiRule);
  GuiTab("Warping", "warping_tab");
  if (IsCloud()) Gui(trGuiHiddenOpen);
  Param(settings_.distortByNormal, "distort_by_normal", 0)
      .ColourOnly()
      .About(
          "Shifts the colour's fractal by the slope of the surface, so that it breaks up along the relief.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(settings_.distortionByNormal, "distortion_by_normal", 5.0, &distortionHint_)
      .ColourOnly()
      .About("How far it is shifted, in sizes of each octave.");
  if (IsCloud()) Gui(trGuiHiddenClose);
  Gui(trGuiGap);
  Gui(trGuiBlockOpen);
  Param(settings_.leadInWarpEffect, "lead-in_warp_effect", 0, &warpEffectHint_)
      .About("Warps the fractal's space by one octave of noise, so that large forms lose their evenness.");
  Param(settings_.leadInWarpAmount, "lead-in_warp_amount", 0.5, &warpHint_)
      .About("Reach of the warp, as a share of the lead-in scale.");
  Gui(trGuiBlockClose);
  Param(settings_.lessWarpAtFeatureScale, "less_warp_at_feature_scale", defaults.lessWarp)
      .About("Lets the warp fade from about the feature scale on down, so that details aren't drawn out.");
  Param(settings_.allowVerticalWarp, "allow_vertical_warp", defaults.verticalWarp)
      .About("Warps along the vertical as well. Off, points are shifted along the ground alone.");
}

void PowerFractalShaderV3Base::DeclareAnimation() {
  Gui(trGuiRule);
  GuiTab("Animation", "animation_tab");
  Param(settings_.fourDNoise, "four-d_noise", 0)
      .Display("4D noise")
      .About("Lets the forms change with time, for animated clouds and water.");
  Gui(trGuiIndentOpen);
  Param(settings_.fourDNoiseSpeed, "four-d_noise_speed", 0.1)
      .Display("4D noise speed")
      .About("How fast they change from frame to frame; small forms change faster than large ones.");
  Param(settings_.referenceFrameNumber, "reference_frame_number", 0).About("Frame that counts as time 0.");
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
