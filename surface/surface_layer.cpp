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
  Param(applyColour_, "apply_colour", 1)
      .ColourOnly()
      .About(
          "Gives the layer's ground a colour. Off, the layer displaces, shines or carries child layers "
          "alone.");
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(0.5f))
      .ColourOnly()
      .About("Colour of the layer, times the function's where one is linked.");
  Param(colourFunction_, "colour_function", "")
      .ColourOnly()
      .About("Shader that colours the layer: a fractal or an image map.");
  Param(enableTestColour_, "enable_test_colour", 0)
      .ColourOnly()
      .About("Shows the test colour in place of the layer's own, to see where it lies.");
  Param(testColour_, "test_colour", trManRgb(1, 0, 1))
      .ColourOnly()
      .About("Colour that shows where the layer lies.");
  AddGuiAction({"apply_colour"}, {"diffuse_colour", "colour_function"}, 2);
  AddGuiAction({"enable_test_colour"}, {"test_colour"}, 2);

  GuiTab("Luminosity", "luminosity_tab");
  Param(luminous_, "luminous", 0)
      .ColourOnly()
      .About("Lets the layer shine by itself: lava, or lights of a town from far.");
  Param(luminosityMultiplier_, "luminosity_multiplier", 1.0, &strengthHint_)
      .ColourOnly()
      .About("Strength of that light, in the radiance of a white matt surface in a sun of strength 1.");
  Param(luminosityTint_, "luminosity_tint", trRgbLinear709(1.0f)).ColourOnly().About("Colour of that light.");
  Param(luminosityFunction_, "luminosity_function", "")
      .ColourOnly()
      .About("Shader whose colour multiplies the light.");
  AddGuiAction({"luminous"}, {"luminosity_multiplier", "luminosity_tint", "luminosity_function"}, 2);

  GuiTab("Displacement", "displacement_tab");
  direction_.Declare(this);
  Param(displacementMultiplier_, "displacement_multiplier", 1.0, &strengthHint_)
      .About("Factor of the displacement function: metres for its value 1.");
  Param(displacementFunction_, "displacement_function", "")
      .About("Shader whose brightness moves the surface.");
  Param(displacementOffset_, "displacement_offset", 0.0, &strengthHint_)
      .Alias("displacement")
      .About("Moves the surface everywhere, metres: the thickness of snow.");

  GuiTab("Smoothing", "smoothing_tab");
  Param(smoothingEffect_, "smoothing_effect", 0)
      .About("Takes detail off that was added after compute terrain, as under snow or sand.");
  Param(smoothingAmount_, "smoothing_amount", 1.0, &smoothingHint_)
      .About("Share of that detail that goes: 1 is all, below 0 exaggerates it. No more than 1.");
  AddGuiAction({"smoothing_effect"}, {"smoothing_amount"}, 2);
  Gui(trGuiRule);
  Param(childLayers_, "child_layers", "")
      .Alias("surface_layers")
      .About("Layers that lie on this one, and only where it does.");
  Gui(trGuiRule);
}

void SurfaceLayer::DeclareCoverage() {
  GuiTab("Coverage/Breakup", "coverage_breakup_tab");
  breakup_.Declare(this);
  Param(onlyBreakupColour_, "only_breakup_colour", 0)
      .About("The fractal breaks up colour alone; displacement keeps the smooth outline of the limits.");
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
  Param(intersectUnderlying_, "intersect_underlying", 0)
      .About("Lets the layer's cover follow the relief beneath: filling hollows, or lying on rises.");
  Param(intersectionMode_, "intersection_mode", 0, &intersectionModeHint_)
      .About(
          "What is filled: hollows, rises, or what lies below the displaced layer, as water fills a valley.");
  Param(intersectionZone_, "intersection_zone", 2.0, &strengthHint_)
      .About(
          "Height over which the layer comes and goes where it meets what lies beneath, metres. Small is "
          "sharp.");
  Param(smoothingScale_, "smoothing_scale", 0.0, &smoothingScaleHint_)
      .About("Kept for older projects; without effect.");
  Param(intersectionShift_, "intersection_shift", 2.0, &shiftHint_)
      .About("Height to which a full cover is raised over what lies beneath, metres. More covers more.");
  Param(minIntersectionShift_, "min_intersection_shift", -2.0, &shiftHint_)
      .About("Height of the thinnest cover, metres; below 0 it sinks beneath the surface.");
  Param(fuzzyZoneSoftness_, "fuzzy_zone_softness", 1.0)
      .ColourOnly()
      .About("Width of the ramp of colour at the borders. Below 1 is harder, above 1 softer and thinner.");
  Param(exactForShading_, "smoother_fuzzy_zones_for_shading", 0)
      .Display("Better colour/shade continuity")
      .ColourOnly()
      .About("Exact arithmetic for the borders of colour, where steps show. A little slower.");
  Param(exactForDisplacement_, "smoother_fuzzy_zones_for_displacement", 0)
      .Display("Better displacement continuity")
      .About("Exact arithmetic for the borders of displacement, where steps show. A little slower.");
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
