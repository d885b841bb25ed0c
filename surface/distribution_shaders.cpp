// distribution_shader_v2, _v3 and _v4.
#include "surface/distribution_shaders.h"

#include "core/messages.h"
#include "core/shading_save.h"

trFCol DistributionBase::Softened(const trFCol& v) const {
  trFCol mask;
  for (int i = 0; i < 3; ++i)
    mask[i] = static_cast<float>(SmoothStep(GuardedDivide(v[i] - 0.5, softness_) + 0.5));
  return mask;
}

trFCol DistributionBase::LegacyBroken(trShadingInterface& si, double cover, trShader* fractal) const {
  trFCol e;
  const double c = breakup_.contrast;
  if (fractal) e = breakup_.Offset(si, *fractal);
  return e * Tamed(static_cast<float>(c)) +
         trFCol(Tamed(static_cast<float>((cover - 0.5) * (2 * c + 1) + 0.5)));
}

long DistributionBase::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  trShader* const children = ChildLayers();
  if (!IsEnabled() || !children) return 1;
  const trFCol mask = Mask(si);
  if (mask.IsBlack()) return 1;

  const trVector pt = si.Pt(), p = si.P(), n = si.N();
  children->DisplaceTS(si);
  const double m = Luminance(mask);
  si.Pt() = si.Pt() * m + pt * (1 - m);
  si.P() = si.P() * m + p * (1 - m);
  si.N() = Normalised(si.N() * m + n * (1 - m));
  return 1;
}

long DistributionBase::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  const trFCol mask = Mask(si), colour = colour_.ToRender();
  if (mask.IsBlack()) return 1;

  if (trShader* const children = ChildLayers()) {
    const auto shade = [&] {
      si.Cutil() = colour;
      if (si.doCo()) si.SetShadingToLambert(colour);
      children->ShadeTS(si);
    };
    if (mask == trFCol(1.0f)) return shade(), 1;
    const trSavedShading beneath(si);
    shade();
    trBlendShading(si, mask, beneath, trFCol(1.0f) - mask);
    return 1;
  }
  si.Cutil() += mask * (colour - si.Cutil());
  if (si.doCo()) {
    si.Bsdf().Scale(trFCol(1.0f) - mask);
    si.Bsdf().AddLambert(colour * mask);
  }
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------

void LayeredDistribution::DeclareColour() {
  Param(colour_, "colour", trManRgb(1, 1, 1))
      .Alias("diffuse_color")
      .ColourOnly()
      .About("Colour where the distribution applies: white makes a mask of it.");
  Param(childLayers_, "child_layers", "")
      .Alias("surface_layers")
      .About("Network that is laid on the surface where the distribution applies.");
}

long LayeredDistribution::OnFirstCreate() {
  trSurfaceShader::OnFirstCreate();
  return CreateBreakupFractal(this, false);
}

DistributionShaderV4::DistributionShaderV4() {
  DeclareColour();
  GuiTab("Coverage/Breakup", "coverage_breakup_tab");
  breakup_.Declare(this);
  maskShader_.Declare(this);
  GuiTab("Altitude limits", "altitude_tab");
  altitude_.Declare(this);
  altitude_.DeclareKey(this, 0);
  altitude_.DeclareUseY(this);
  GuiTab("Slope limits", "slope_tab");
  slope_.Declare(this);
  slope_.DeclareKey(this);
  slope_.DeclareUseY(this);
  GuiTab("Direction limits", "direction_tab");
  compass_.Declare(this);
  GuiTab("Tweaks", "tweaks_tab");
  Param(softness_, "fuzzy_zone_softness", 1.0)
      .About("Width of the ramp at the borders about the middle cover. Below 1 is harder.");
  Param(exact_, "smoother_fuzzy_zones", 0)
      .Display("Smoother fuzzy zones (better curve continuity)")
      .About("Exact arithmetic for the borders, where steps show. A little slower.");
}

long DistributionShaderV4::OnFirstCreate() {
  SetParam("altitude_key", 1, this);
  return LayeredDistribution::OnFirstCreate();
}

void DistributionShaderV4::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  breakup_.OnParamChanged(this, index, who);
  maskShader_.OnParamChanged(this, index, who);
}

void DistributionShaderV4::UpdateDerived() {
  LayeredDistribution::UpdateDerived();
  compass_.Update();
}

trFCol DistributionShaderV4::Mask(trShadingInterface& si) const {
  if (breakup_.coverage <= 0) return {};
  const double limits =
      1.0 - compass_.Terms(si, exact_) - slope_.Terms(si, exact_) - altitude_.Terms(si, exact_);
  if (limits <= 0) return {};
  trFCol mask(Tamed(static_cast<float>(limits * breakup_.coverage)));

  float byShader = 1;
  if (!maskShader_.Apply(si, mask, byShader) || !breakup_.Apply(si, mask)) return mask;
  mask = Softened(mask);
  return maskShader_.asCoverage ? mask : mask * byShader;
}

DistributionShaderV3::DistributionShaderV3() {
  trWarning(
      "Distribution shader v3 is a deprecated class which may not work in future versions of Ombrivex.");
  DeclareColour();
  GuiTab("Coverage/Breakup", "coverage_breakup_tab");
  breakup_.Declare(this);
  GuiTab("Altitude constraints", "altitude_tab");
  altitude_.Declare(this);
  altitude_.DeclareUseY(this);
  GuiTab("Slope constraints", "slope_tab");
  slope_.Declare(this);
  slope_.DeclareUseY(this);
  GuiTab("Tweaks", "tweaks_tab");
  Param(softness_, "fuzzy_zone_softness", 1.0)
      .About("Width of the ramp at the borders about the middle cover. Below 1 is harder.");
  Param(version4_, "version_4", 0)
      .About(
          "Multiplies limits by the coverage, as the later class does. Off, older projects look as they "
          "did.");
}

trFCol DistributionShaderV3::Mask(trShadingInterface& si) const {
  if (breakup_.coverage <= 0) return {};
  const double limits = 1.0 - slope_.Terms(si, false) - altitude_.Terms(si, false);
  if (limits <= 0) return {};
  trShader* const fractal = breakup_.isOn ? breakup_.Shader() : nullptr;
  if (!version4_) {
    // Old projects lower the limits by the cover that is missing, where the new form scales them.
    const double cover = limits - 1.0 + breakup_.coverage;
    if (breakup_.isOn && !fractal) return trFCol(Tamed(static_cast<float>(std::max(cover, 0.0))));
    return Softened(LegacyBroken(si, cover, fractal));
  }
  const trFCol mask(Tamed(static_cast<float>(limits * breakup_.coverage)));
  if (breakup_.isOn && !fractal) return mask;
  return Softened(fractal ? breakup_.Broken(mask, breakup_.Offset(si, *fractal)) : mask);
}

DistributionShaderV2::DistributionShaderV2() {
  trWarning(
      "Distribution shader v2 is a deprecated class which may not work in future versions of Ombrivex.");
  Param(colour_, "diffuse_color", trManRgb(1, 1, 1)).About("Colour where the distribution applies.");
  breakup_.Declare(this, true);
  altitude_.Declare(this);
  slope_.Declare(this, 1);
  Param(softness_, "fuzzy_zone_softness", 1.0)
      .About("Width of the ramp at the borders about the middle cover. Below 1 is harder.");
  altitude_.DeclareUseY(this);
  slope_.DeclareUseY(this);
}

long DistributionShaderV2::OnFirstCreate() {
  trSurfaceShader::OnFirstCreate();
  // The fractal's second version isn't part of this module; its successor has all that is set here.
  trBase* const fractal = Parent() ? Parent()->CreateChild("power_fractal_shader_v3") : nullptr;
  if (!fractal) return 1;
  fractal->SetBundledWith(this);
  fractal->SetName("Fractal breakup");
  SetParam("breakup_shader", fractal->Name(), this);
  fractal->SetParam("clamp_high_colour", 0, this);
  fractal->SetParam("clamp_low_colour", 0, this);
  fractal->SetParam("noise_variation", 1.0, this);
  return 1;
}

trFCol DistributionShaderV2::Mask(trShadingInterface& si) const {
  if (breakup_.coverage <= 0) return {};
  const double limits = 1.0 - slope_.Terms(si, false) - altitude_.Terms(si, false);
  if (limits <= 0) return {};
  trShader* const fractal = breakup_.isOn ? breakup_.Shader() : nullptr;
  const double cover = limits - 1.0 + breakup_.coverage;
  if (breakup_.isOn && !fractal) return trFCol(Tamed(static_cast<float>(std::max(cover, 0.0))));
  return Softened(LegacyBroken(si, cover, fractal));
}
