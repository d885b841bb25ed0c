// The power fractal's behaviour: couplings of its parameters, displacement and shading.
#include "fractal/power_fractal_shader.h"

PowerFractalShaderV3Base::PowerFractalShaderV3Base()
    : preview_(std::make_unique<PowerFractalShader_PreviewHandler>(this)) {}

void PowerFractalShaderV3Base::OnParamChanged(long index, trBase* who) {
  trShader::OnParamChanged(index, who);
  FollowScales(index, who);
  mask_.OnParamChanged(this, index, who);
}

void PowerFractalShaderV3Base::UpdateDerived() {
  trShader::UpdateDerived();
  UpdateEnabling();
  if (IsCloud()) settings_.colourOffset = coverageAdjust_ - 0.5;
  derived_ = DeriveFractal(settings_);
}

void PowerFractalShaderV3Base::UpdateEnabling() {
  const long flavour = settings_.noiseFlavour;
  const bool mixed = flavour == kPerlinMix1 || flavour == kPerlinMix2;
  if (!IsElder()) {
    SetParamGuiEnabled("ridge_smoothing", mixed || flavour == kPerlinRidges);
    SetParamGuiEnabled("gully_smoothing", mixed || flavour == kPerlinBillows);
  }
  SetParamGuiEnabled("buoyancy_from_variation", settings_.variationMethod == kMultiScaleModulator);
}

void PowerFractalShaderV3Base::FollowScales(long index, trBase* who) {
  FractalSettings& s = settings_;
  const double w = LeadInWavelength(s);
  // The smallest scale that this node set itself came from the octaves, which may reach below the finest
  // scale that the other way round takes into account.
  const bool smallestScaleChanged = IsParam(index, &s.smallestScale) && who != this;
  if (IsParam(index, &s.featureScale) || IsParam(index, &s.leadInScale) || smallestScaleChanged) {
    const long octaves = OctavesForSmallestScale(w, s.smallestScale);
    if (octaves != s.noiseOctaves) SetParam("noise_octaves", octaves, this);
  }
  if (IsParam(index, &s.noiseOctaves)) {
    s.noiseOctaves = std::clamp(s.noiseOctaves, 0L, long{kMaxOctaves});
    if (OctavesForSmallestScale(w, s.smallestScale) != s.noiseOctaves)
      SetParam("smallest_scale", SmallestScaleForOctaves(w, s.noiseOctaves), this);
  }
}

long PowerFractalShaderV3Base::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled() || !applyDisplacement_) return 1;
  float mask;
  if (!mask_.Evaluate(si, SafeReciprocal(settings_.featureScale), mask)) return 0;
  if (mask == 0.0f) return 1;
  const double height = EvaluateFractalDisplacement(settings_, derived_, si) * mask;
  si.P() += displacementDirection_.Of(si) * height;
  return 1;
}

long PowerFractalShaderV3Base::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled() || !si.doCd()) return 1;
  if (!applyHighColour_ && !applyLowColour_) return 1;
  float mask;
  if (!mask_.Evaluate(si, SafeReciprocal(settings_.featureScale), mask)) return 0;
  if (mask == 0.0f) return 1;

  // Wild settings give numbers that no float holds.
  const float t = Tamed(static_cast<float>(EvaluateFractalColour(settings_, derived_, si, mask)));
  float weight = 0.0f;
  trFCol colour;
  if (applyHighColour_) {
    weight += t;
    colour += t * highColour_.ToRender();
  }
  if (applyLowColour_) {
    weight += 1.0f - t;
    colour += (1.0f - t) * lowColour_.ToRender();
  }
  const trFCol alpha(weight * mask);
  if (alpha.IsBlack()) return 1;
  colour = colour * mask * static_cast<float>(si.DEV_FractalMultiplier());
  si.Cutil() = Tamed(si.Cutil() * (trFCol(1.0f) - alpha) + colour);
  if (si.doCo()) {
    si.Bsdf().Scale(trFCol(1.0f) - alpha);
    si.Bsdf().AddLambert(Tamed(colour));
  }
  return 1;
}

long PowerFractalShaderV3::OnFirstCreate() {
  PowerFractalShaderV3Base::OnFirstCreate();
  SetParam("ridge_smoothing", 0.1, this);
  SetParam("gully_smoothing", 0.1, this);
  SetParam("clumping_of_variation", 0.25, this);
  return 1;
}

long PowerFractalShaderV3::OnUserCreate() {
  PowerFractalShaderV3Base::OnUserCreate();
  SetParam("better_displacement_continuity", 1, this);
  return 1;
}

long CloudFractalShaderV3::OnFirstCreate() {
  PowerFractalShaderV3Base::OnFirstCreate();
  SetParam("ridge_smoothing", 0.1, this);
  SetParam("gully_smoothing", 0.1, this);
  SetParam("clumping_of_variation", 0.25, this);
  SetParam("lead-in_warp_effect", 1, this);
  return 1;
}
