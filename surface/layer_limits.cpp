// The fuzzy limits' arithmetic and parameters.
#include "surface/layer_limits.h"

namespace {

constexpr double kPi = 3.14159265358979;
constexpr double kRadians = kPi / 180.0;
/// Cosine from which on two directions count as the same.
constexpr double kSameDirection = 0.9999;
/// A mask whose smallest channel reaches this counts as full cover, which no fractal breaks up.
constexpr float kFullCover = 0.999f;

double AngleFromCosine(double c) {
  return c < kSameDirection ? kPi / 2 - std::asin(std::clamp(c, -1.0, 1.0)) : 0.0;
}

}  // namespace

void AltitudeLimits::Declare(trBase* node) {
  SetRange(altitudeHint_, node, {.min = -10000.0, .max = 10000.0});
  SetRange(zoneHint_, node, {.min = 0.0, .max = 1000.0});
  node->Param(limitMaximum_, "limit_maximum_altitude", 0)
      .About("Keeps the layer below an altitude: vegetation that ends at the tree line.");
  node->Param(maximum_, "maximum_altitude", 1000.0, &altitudeHint_)
      .About("Altitude at which the layer has ended, metres.");
  node->Param(maximumZone_, "max_alt_fuzzy_zone", 200.0, &zoneHint_)
      .About("Height over which the layer thins out below that altitude, metres. 0 is a hard line.");
  node->Param(limitMinimum_, "limit_minimum_altitude", 0)
      .About("Keeps the layer above an altitude: snow on heights.");
  node->Param(minimum_, "minimum_altitude", 200.0, &altitudeHint_)
      .About("Altitude at which the layer begins, metres.");
  node->Param(minimumZone_, "min_alt_fuzzy_zone", 200.0, &zoneHint_)
      .About("Height over which the layer grows full above that altitude, metres. 0 is a hard line.");
  node->AddGuiAction({"limit_maximum_altitude"}, {"maximum_altitude", "max_alt_fuzzy_zone"}, 2);
  node->AddGuiAction({"limit_minimum_altitude"}, {"minimum_altitude", "min_alt_fuzzy_zone"}, 2);
}

void AltitudeLimits::DeclareKey(trBase* node, long keyDefault) {
  SetMenu(keyHint_, node, {{"Final position", 0}, {"Position in terrain/texture", 1}});
  node->Param(key_, "altitude_key", keyDefault, &keyHint_)
      .About("Altitude of the displaced surface, or of the terrain as compute terrain last stored it.");
}

void AltitudeLimits::DeclareUseY(trBase* node) {
  node->Param(useY_, "use_Y_for_altitude", 0)
      .Display("Use Y")
      .About("Measures along the world's y axis in place of height over the planet or object.");
}

trVector AltitudeLimits::Position(trShadingInterface& si) const {
  return key_ == 1 ? si.Pt() : key_ == 2 ? si.Pg() : si.P();
}

double AltitudeLimits::Terms(trShadingInterface& si, bool exact) const {
  if (!limitMaximum_ && !limitMinimum_) return 0;
  const trVector position = Position(si);
  double altitude = position.y;
  if (!useY_) {
    const trVector risen = position - si.Pg();
    altitude = Dot(Normalised(risen), Normalised(si.Ng())) * risen.Length();
  }
  double sum = 0;
  if (limitMaximum_) sum += FuzzyTerm(maximum_ - altitude, maximumZone_, exact);
  if (limitMinimum_) sum += FuzzyTerm(altitude - minimum_, minimumZone_, exact);
  return sum;
}

void NormalKey::Declare(trBase* node, const char* name) {
  SetMenu(hint_, node, {{"Final normal", 0}, {"Terrain normal", 1}, {"Planet/object normal", 2}});
  node->Param(key_, name, 0, &hint_)
      .About(
          "Which normal counts: the displaced surface's, the terrain's as compute terrain stored it, or the "
          "planet's.");
}

void SlopeLimits::Declare(trBase* node, unsigned char limitMaximumDefault) {
  SetRange(angleHint_, node, {.min = 0.0, .max = 90.0});
  node->Param(limitMaximum_, "limit_maximum_slope", limitMaximumDefault)
      .About("Keeps the layer off steep ground: grass and snow.");
  node->Param(maximum_, "maximum_slope_angle", 60.0, &angleHint_)
      .About("Slope at which the layer has ended, degrees from level ground.");
  node->Param(maximumZone_, "max_slope_fuzzy_zone", 20.0, &angleHint_)
      .About("Degrees over which the layer thins out towards that slope. 0 is a hard line.");
  node->Param(limitMinimum_, "limit_minimum_slope", 0)
      .About("Keeps the layer off gentle ground: bare rock on walls.");
  node->Param(minimum_, "minimum_slope_angle", 30.0, &angleHint_)
      .About("Slope at which the layer begins, degrees from level ground.");
  node->Param(minimumZone_, "min_slope_fuzzy_zone", 10.0, &angleHint_)
      .About("Degrees over which the layer grows full above that slope. 0 is a hard line.");
  node->AddGuiAction({"limit_maximum_slope"}, {"maximum_slope_angle", "max_slope_fuzzy_zone"}, 2);
  node->AddGuiAction({"limit_minimum_slope"}, {"minimum_slope_angle", "min_slope_fuzzy_zone"}, 2);
}

void SlopeLimits::DeclareUseY(trBase* node) {
  node->Param(useY_, "use_Y_for_slope", 0)
      .Display("Use Y")
      .About("Measures slopes from the world's y axis in place of the planet's or object's own up.");
}

double SlopeLimits::Terms(trShadingInterface& si, bool exact) const {
  if (!limitMaximum_ && !limitMinimum_) return 0;
  const trVector& n = key_.Of(si);
  const double slope = AngleFromCosine(useY_ ? n.y : Dot(n, si.Ng()));
  double sum = 0;
  if (limitMaximum_) sum += FuzzyTerm(maximum_ * kRadians - slope, maximumZone_ * kRadians, exact);
  if (limitMinimum_) sum += FuzzyTerm(slope - minimum_ * kRadians, minimumZone_ * kRadians, exact);
  return sum;
}

void DirectionLimit::Declare(trBase* node) {
  SetRange(headingHint_, node, {.min = -180.0, .max = 180.0});
  SetRange(declinationHint_, node, {.min = -90.0, .max = 90.0});
  SetRange(deviationHint_, node, {.min = 0.0, .max = 180.0});
  node->Param(limit_, "limit_direction", 0)
      .About("Keeps the layer to ground that faces one way: snow on shaded sides, wear on the windward one.");
  node->Param(heading_, "direction_heading", 0.0, &headingHint_)
      .Display("Peak compass heading")
      .About("Compass direction that the layer prefers, degrees from north; 90 is east.");
  node->Param(declination_, "direction_declination", 0.0, &declinationHint_)
      .Display("Peak angle above horizon")
      .About("How far that direction points up, degrees: 0 is level, 90 straight up.");
  node->Param(maxDeviation_, "direction_max_deviation", 120.0, &deviationHint_)
      .Display("Max deviation")
      .About("Angle from that direction at which the layer has ended, degrees.");
  node->Param(zone_, "direction_max_deviation_fuzzy_zone", 40.0, &deviationHint_)
      .Display("Fuzzy zone")
      .About("Degrees over which the layer thins out towards that angle. 0 is a hard line.");
  key_.Declare(node, "direction_key");
  node->AddGuiAction({"limit_direction"},
                     {"direction_heading", "direction_declination", "direction_max_deviation",
                      "direction_max_deviation_fuzzy_zone", "direction_key"},
                     2);
}

void DirectionLimit::Update() {
  const double heading = heading_ * kRadians, declination = declination_ * kRadians;
  peak_ = {std::cos(declination) * std::sin(heading), std::sin(declination),
           std::cos(declination) * std::cos(heading)};
}

double DirectionLimit::Terms(trShadingInterface& si, bool exact) const {
  if (!limit_) return 0;
  const double angle = AngleFromCosine(static_cast<float>(Dot(peak_, key_.Of(si))));
  return FuzzyTerm(maxDeviation_ * kRadians - angle, zone_ * kRadians, exact);
}

void Breakup::Declare(trBase* node, bool invertFirst) {
  SetRange(contrastHint, node, {.max = 2.0});
  node->Param(coverage, "coverage", 1.0)
      .About(
          "How much of the surface the layer covers within its limits: 0 none, 1 all, between in patches.");
  node->Param(isOn, "fractal_breakup", 1)
      .About("Breaks the border of thin cover up into patches by a fractal.");
  node->Param(shader, "breakup_shader", "")
      .About("Fractal whose brightness breaks the layer up: values above 0.5 spread it, below they open it.");
  if (invertFirst)
    node->Param(invert, "invert_breakup", 0).About("Turns the fractal round: patches where gaps were.");
  node->Param(contrast, "fractal_contrast", 0.5, &contrastHint)
      .About(
          "Strength of the fractal against coverage and fuzzy zones. More tears borders up further and "
          "harder.");
  if (!invertFirst)
    node->Param(invert, "invert_breakup", 0).About("Turns the fractal round: patches where gaps were.");
  node->AddGuiAction({"fractal_breakup"}, {"breakup_shader"}, 3);
  node->AddGuiAction({"fractal_breakup"}, {"fractal_contrast", "invert_breakup"}, 2);
}

bool Breakup::Apply(trShadingInterface& si, trFCol& mask) const {
  if (!isOn) return true;
  trShader* const fractal = Shader();
  if (fractal && mask.MaxChannel() > 0 && mask.MinChannel() < kFullCover)
    mask = Broken(mask, Offset(si, *fractal));
  return fractal != nullptr;
}

trFCol Breakup::Offset(trShadingInterface& si, trShader& fractal) const {
  trFCol e = Tamed(fractal.FColValueTS(si));
  for (int i = 0; i < 3; ++i) e[i] = std::clamp((invert ? 1.0f - e[i] : e[i]) - 0.5f, -0.5f, 0.5f);
  return e;
}

trFCol Breakup::Broken(const trFCol& m, const trFCol& offset) const {
  return Tamed(m + (m - trFCol(0.5f) + offset) * Tamed(static_cast<float>(contrast)));
}

void LayerMaskShader::Declare(trBase* node) {
  node->Param(isOn, "blend_by_shader", 0)
      .Display("Mask by shader")
      .About("Lets another shader say where the layer counts. Linking or cutting the mask switches it.");
  node->Param(shader, "blending_shader", "")
      .Display("Mask shader")
      .About("Its brightness is how much the layer counts at a place: 0 none, 1 all.");
  node->Param(invert, "invert_blendshader", 0)
      .Display("Invert mask")
      .About("Turns the mask round: the layer counts where the mask is dark.");
  node->Param(asCoverage, "blend_as_coverage", 1)
      .Display("Mask as coverage")
      .About(
          "Half a mask gives half the cover, which breaks up into patches. Off, the whole layer becomes half "
          "seen.");
  node->AddGuiAction({"blend_by_shader"}, {"blending_shader"}, 3);
  node->AddGuiAction({"blend_by_shader"}, {"invert_blendshader", "blend_as_coverage"}, 2);
}

bool LayerMaskShader::Apply(trShadingInterface& si, trFCol& mask, float& value) const {
  value = 1;
  if (!isOn) return true;
  trShader* const linked = LinkedShader(shader);
  if (!linked) return false;
  value = Luminance(Tamed(linked->FColValueTS(si)));
  if (invert) value = 1.0f - value;
  if (value == 0) {
    mask = {};
    return false;
  }
  if (asCoverage) mask *= value;
  return true;
}

long CreateBreakupFractal(trBase* node, bool switchOn) {
  trBase* const parent = node->Parent();
  trBase* const fractal = parent ? parent->CreateChild("power_fractal_shader_v3") : nullptr;
  if (!fractal) return 0;
  fractal->SetBundledWith(node);
  fractal->SetName("Fractal breakup %02d");
  node->SetParam("fractal_breakup", switchOn, node);
  node->SetParam("breakup_shader", fractal->Name(), node);
  fractal->SetParam("colour_contrast", 0.5, node);
  fractal->SetParam("clamp_high_colour", 0, node);
  fractal->SetParam("clamp_low_colour", 0, node);
  fractal->SetParam("apply_displacement", 0, node);
  fractal->SetParam("noise_variation", 1.0, node);
  fractal->SetParam("buoyancy_from_variation", 0.0, node);
  fractal->SetParam("distort_by_normal", 1, node);
  fractal->SetParam("lead-in_warp_effect", 1, node);
  fractal->SetParam("lead-in_warp_amount", 1.0, node);
  return 1;
}
