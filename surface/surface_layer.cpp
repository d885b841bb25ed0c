// The parameters and couplings of surface_layer, and what a layer does where its mask lets it.
#include "surface/surface_layer.h"

#include "core/shading_save.h"

namespace {

constexpr long kDisplacementIntersection = 2;

trVector Mixed(const trVector& a, const trVector& b, double weightOfA) {
  return a * weightOfA + b * (1 - weightOfA);
}

}  // namespace

SurfaceLayer::SurfaceLayer() {
  DeclareColour();
  DeclareCoverage();
  DeclareLimits();
  DeclareEffects();
}

void SurfaceLayer::DeclareColour() {
  SetRange(strengthHint_, this, {.max = 10.0, .focusPower = 2.0});
  SetRange(smoothingHint_, this, {.min = -1.0, .max = 1.0});

  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1).ColourOnly();
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(0.5f)).ColourOnly();
  Param(colourFunction_, "colour_function", "").ColourOnly();
  Param(enableTestColour_, "enable_test_colour", 0).ColourOnly();
  Param(testColour_, "test_colour", trManRgb(1, 0, 1)).ColourOnly();
  AddGuiAction({"apply_colour"}, {"diffuse_colour", "colour_function"}, 2);
  AddGuiAction({"enable_test_colour"}, {"test_colour"}, 2);

  GuiTab("Luminosity", "luminosity_tab");
  Param(luminous_, "luminous", 0).ColourOnly();
  Param(luminosityMultiplier_, "luminosity_multiplier", 1.0, &strengthHint_).ColourOnly();
  Param(luminosityTint_, "luminosity_tint", trRgbLinear709(1.0f)).ColourOnly();
  Param(luminosityFunction_, "luminosity_function", "").ColourOnly();
  AddGuiAction({"luminous"}, {"luminosity_multiplier", "luminosity_tint", "luminosity_function"}, 2);

  GuiTab("Displacement", "displacement_tab");
  direction_.Declare(this);
  Param(displacementMultiplier_, "displacement_multiplier", 1.0, &strengthHint_);
  Param(displacementFunction_, "displacement_function", "");
  Param(displacementOffset_, "displacement_offset", 0.0, &strengthHint_).Alias("displacement");

  GuiTab("Smoothing", "smoothing_tab");
  Param(smoothingEffect_, "smoothing_effect", 0);
  Param(smoothingAmount_, "smoothing_amount", 1.0, &smoothingHint_);
  AddGuiAction({"smoothing_effect"}, {"smoothing_amount"}, 2);
  Gui(trGuiRule);
  Param(childLayers_, "child_layers", "").Alias("surface_layers");
  Gui(trGuiRule);
}

void SurfaceLayer::DeclareCoverage() {
  GuiTab("Coverage/Breakup", "coverage_breakup_tab");
  breakup_.Declare(this);
  Param(onlyBreakupColour_, "only_breakup_colour", 0);
  AddGuiAction({"fractal_breakup"}, {"only_breakup_colour"}, 2);
  maskShader_.Declare(this);
}

void SurfaceLayer::DeclareLimits() {
  GuiTab("Altitude limits", "altitude_tab");
  altitude_.Declare(this);
  altitude_.DeclareKey(this, 1);
  altitude_.DeclareUseY(this);
  GuiTab("Slope limits", "slope_tab");
  slope_.Declare(this);
  slope_.DeclareKey(this);
  slope_.DeclareUseY(this);
  GuiTab("Direction limits", "direction_tab");
  compass_.Declare(this);
}

void SurfaceLayer::DeclareEffects() {
  SetMenu(intersectionModeHint_, this,
          {{"Favour depressions", 0},
           {"Favour rises", 1},
           {"Displacement intersection", kDisplacementIntersection}});
  SetRange(smoothingScaleHint_, this, {.max = 100.0, .focusPower = 2.0});
  SetRange(shiftHint_, this, {.min = -8.0, .max = 8.0});

  GuiTab("Effects", "effects_tab");
  Param(intersectUnderlying_, "intersect_underlying", 0);
  Param(intersectionMode_, "intersection_mode", 0, &intersectionModeHint_);
  Param(intersectionZone_, "intersection_zone", 2.0, &strengthHint_);
  Param(smoothingScale_, "smoothing_scale", 0.0, &smoothingScaleHint_);
  Param(intersectionShift_, "intersection_shift", 2.0, &shiftHint_);
  Param(minIntersectionShift_, "min_intersection_shift", -2.0, &shiftHint_);
  Param(fuzzyZoneSoftness_, "fuzzy_zone_softness", 1.0).ColourOnly();
  Param(exactForShading_, "smoother_fuzzy_zones_for_shading", 0)
      .Display("Better colour/shade continuity")
      .ColourOnly();
  Param(exactForDisplacement_, "smoother_fuzzy_zones_for_displacement", 0)
      .Display("Better displacement continuity");
}

long SurfaceLayer::OnFirstCreate() {
  trSurfaceShader::OnFirstCreate();
  SetParam("only_breakup_colour", 1, this);
  return CreateBreakupFractal(this, true);
}

void SurfaceLayer::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  if (IsParam(index, &smoothingAmount_) && smoothingAmount_ > 1) SetParam("smoothing_amount", 1.0, this);

  const bool isIntersection = IsParam(index, &intersectUnderlying_) || IsParam(index, &intersectionMode_);
  if (who == trWhoUser && isIntersection && intersectUnderlying_ &&
      intersectionMode_ == kDisplacementIntersection && !smoothingEffect_) {
    trPrintMessage(
        "This feature works best with \"Smoothing effect\". Smoothing effect will now be enabled.");
    SetParam("smoothing_effect", 1, this);
  }
  trSwitchFollowsLink(this, index, who, colourFunction_, applyColour_, "apply_colour");
  trSwitchFollowsLink(this, index, who, luminosityFunction_, luminous_, "luminous");
  breakup_.OnParamChanged(this, index, who);
  maskShader_.OnParamChanged(this, index, who);
}

void SurfaceLayer::UpdateDerived() {
  trSurfaceShader::UpdateDerived();
  compass_.Update();
}

void SurfaceLayer::DisplaceLayer(trShadingInterface& si) {
  const trVector direction = direction_.Of(si);
  if (smoothingEffect_) si.P() = Mixed(si.Pt(), si.P(), smoothingAmount_);
  double amount = displacementOffset_;
  if (auto* function = LinkedShader(displacementFunction_))
    amount += Tamed(function->FloatValueTS(si)) * displacementMultiplier_;
  si.P() += direction * amount;
  if (trShader* children = ChildLayers()) children->DisplaceTS(si);
}

long SurfaceLayer::Displace(trShadingInterface& si) {
  if (!IsEnabled()) {
    DisplaceInput(si);
    return 1;
  }
  Underlying base;
  if (!intersectUnderlying_) {
    DisplaceInput(si);
    base = {si.Pt(), si.P(), si.N()};
  }
  const trFCol mask = Mask(si, Pass::kDisplace, base);
  if (mask.IsBlack()) {
    si.Pt() = base.pt;
    si.P() = base.p;
    si.N() = base.n;
    return 1;
  }
  if (!intersectUnderlying_) DisplaceLayer(si);

  const double m = Luminance(mask);
  si.Pt() = Mixed(si.Pt(), base.pt, m);
  si.P() = Mixed(si.P(), base.p, m);
  si.N() = Normalised(Mixed(si.N(), base.n, m));
  return 1;
}

void SurfaceLayer::ShadeLayer(trShadingInterface& si) {
  trFCol emission;
  if (luminous_ && (si.doCo() || si.doCe())) {
    emission = Tamed(luminosityTint_.ToRender() * Tamed(static_cast<float>(luminosityMultiplier_)));
    MultiplyByShader(emission, LinkedShader(luminosityFunction_), si);
  }
  if (!enableTestColour_ && !applyColour_) {
    si.Bsdf().Emission() += emission;
    return;
  }
  // This layer covers whatever light the ones beneath had gathered.
  si.RenderState().ShadeOutputs() = {};
  trFCol colour = testColour_.ToRender();
  if (!enableTestColour_) {
    colour = diffuseColour_.ToRender();
    MultiplyByShader(colour, LinkedShader(colourFunction_), si);
  }
  si.Cutil() = colour;
  si.SetShadingToLambert(colour);
  si.Bsdf().Emission() = emission;
}

long SurfaceLayer::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trShader* const children = ChildLayers();
  if (!children && !applyColour_ && !enableTestColour_ && !luminous_) return 1;
  Underlying base;
  const trFCol mask = Mask(si, Pass::kShade, base);
  if (mask.IsBlack()) return 1;

  if (mask == trFCol(1.0f)) {
    ShadeLayer(si);
    if (children) children->ShadeTS(si);
    return 1;
  }
  const trSavedShading beneath(si);
  ShadeLayer(si);
  if (children) children->ShadeTS(si);
  trBlendShading(si, mask, beneath, trFCol(1.0f) - mask);
  return 1;
}
