// The alpine fractals' parameters and displacement.
#include "fractal/alpine_fractal_shader.h"

AlpineFractalShaderBase::AlpineFractalShaderBase() {
  constexpr double kMetres = 1e6;
  SetRange(scaleHint_, this, {.min = 0.0, .max = kMetres, .focusPower = 4.0});
  SetRange(smallestHint_, this, {.min = 0.0, .max = 1000.0, .focusPower = 4.0});
  SetRange(amplitudeHint_, this, {.max = kMetres, .focusPower = 4.0});
  SetRange(roughnessHint_, this, {.min = 0.0, .max = 4.0});
  SetRange(shareHint_, this, {.min = 0.0, .max = 1.0});
}

void AlpineFractalShaderBase::DeclareSeedAndScale() {
  Gui(trGuiBlockOpen);
  Seed(settings_.seed).About("Chooses one of many ranges of the same kind. Any number will do.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(randomiseButton_, "randomise_button");
  Gui(trGuiButtonRowClose);
  Gui(trGuiBlockClose);
  Gui(trGuiRule);
  GuiTab("Scale", "scale_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.featureScale, "feature_scale", 4000.0, &scaleHint_)
      .About("Distance between neighbouring mountains, metres. Spurs, gullies and rock are sized by it.");
  Param(settings_.leadInScale, "lead-in_scale", 25000.0, &scaleHint_)
      .About(
          "Size of the massifs that raise and lower whole groups of mountains, metres. At or below the "
          "feature scale there are none.");
  Param(settings_.smallestScale, "smallest_scale", 1.0, &smallestHint_)
      .About(
          "Size of the finest rock, metres. Smaller takes longer; what is below a pixel is left out anyway.");
  Gui(trGuiBlockClose);
  Gui(trGuiGap);
  Param(settings_.obeySmoothingFilter, "obey_smoothing_filter", 1)
      .Display("Obey downstream smoothing filters")
      .About(
          "Leaves out detail that smoothing shaders downstream, or distance, would blur away. Leave it on.");
}

void AlpineFractalShaderBase::DeclareDisplacement() {
  Gui(trGuiRule);
  GuiTab("Displacement", "displacement_tab");
  Gui(trGuiBlockOpen);
  displacementDirection_.Declare(this);
  Param(settings_.displacementAmplitude, "displacement_amplitude", 1000.0, &amplitudeHint_)
      .About("Height of the mountains over their valleys, metres. Single summits reach about twice as high.");
  Param(settings_.displacementOffset, "displacement_offset", 0.0, &amplitudeHint_)
      .About("Raises or lowers everything by so many metres.");
  Param(settings_.roughness, "displacement_roughness", 1.0, &roughnessHint_)
      .About(
          "How strong finer octaves are against coarser ones. Above 1 rock gets rugged, below 1 flanks get "
          "smooth.");
  Gui(trGuiBlockClose);
}

void AlpineFractalShaderBase::DeclareRidges() {
  Gui(trGuiRule);
  GuiTab("Ridges", "ridges_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.ridgeSharpness, "ridge_sharpness", 0.8, &shareHint_)
      .About("1 gives ridges a knife's edge, 0 rounds them off as old mountains are.");
}

void AlpineFractalShaderBase::OnParamChanged(long index, trBase* who) {
  trShader::OnParamChanged(index, who);
  mask_.OnParamChanged(this, index, who);
}

void AlpineFractalShaderBase::UpdateDerived() {
  trShader::UpdateDerived();
  derived_ = DeriveAlpine(settings_);
}

long AlpineFractalShaderBase::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  float mask;
  if (!mask_.Evaluate(si, SafeReciprocal(settings_.featureScale), mask)) return 0;
  if (mask == 0.0f) return 1;
  si.P() += displacementDirection_.Of(si) * (Height(si) * mask);
  return 1;
}

AlpineFractalShaderV2::AlpineFractalShaderV2() {
  DeclareSeedAndScale();
  DeclareDisplacement();
  DeclareRidges();
  Param(settings_.leadInVariation, "lead-in_variation", 0.7, &shareHint_)
      .About(
          "How much lower mountains are where the lead-in makes a lowland: 0 leaves all alike, 1 flattens "
          "them there.");
  Gui(trGuiBlockClose);
  Gui(trGuiRule);
  GuiTab("Valleys and erosion", "erosion_tab");
  Gui(trGuiBlockOpen);
  Param(settings_.valleyWidth, "valley_width", 0.25, &shareHint_)
      .About(
          "How far the floors of the main valleys reach up to the flanks, 0 to 1. Glaciers leave wide ones.");
  Param(settings_.valleySmoothness, "valley_smoothness", 0.8, &shareHint_)
      .About("How softly flanks run out on valley floors, and how much detail is filled in there, 0 to 1.");
  Param(settings_.erosion, "erosion", 0.4, &shareHint_)
      .About(
          "How much less rock there is on steep flanks than on gentle ones, 0 to 1, as if it had fallen off "
          "them.");
  Param(settings_.gullyBending, "gully_bending", 0.85, &shareHint_)
      .About("How far spurs and gullies run straight down the flanks, 0 to 1. At 0 they lie any way.");
  Gui(trGuiBlockClose);
  mask_.Declare(this, 0);
  UpdateDerived();
}

double AlpineFractalShaderV2::Height(trShadingInterface& si) const {
  return EvaluateAlpine(Settings(), Derived(), si);
}

AlpineFractalShader::AlpineFractalShader() {
  DeclareSeedAndScale();
  DeclareDisplacement();
  DeclareRidges();
  Gui(trGuiBlockClose);
  mask_.Declare(this, 0);
  UpdateDerived();
}

double AlpineFractalShader::Height(trShadingInterface& si) const {
  return EvaluateRidgedMultifractal(Settings(), Derived(), si);
}
