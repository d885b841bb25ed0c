// strata_and_outcrops_shader_v2.
#include "fractal/strata_shader.h"

namespace {

/// Octaves halve: after so many a layer is thinner than an atom, wherever they started.
constexpr long kMostOctaves = 64;

}  // namespace

StrataAndOutcropsShaderV2::StrataAndOutcropsShaderV2() {
  SetRange(altitudeHint_, this, {.min = -1000, .max = 1000});
  SetRange(lengthHint_, this, {.min = 0, .max = 1000});
  SetRange(steepnessHint_, this, {.min = 0, .max = 4});
  SetRange(directionHint_, this, {.min = 0, .max = 360});
  SetRange(angleHint_, this, {.min = -90, .max = 90});
  Param(altitude_, "hard_layer_altitude", 0.0, &altitudeHint_)
      .About(
          "Altitude of one hard layer above the undisplaced ground, metres. The others lie above and below "
          "at the spacing.");
  Param(depth_, "hard_layer_depth", 50.0, &lengthHint_)
      .About(
          "Thickness of a hard layer, metres: the height over which slopes become cliffs. At most the "
          "spacing counts.");
  Param(steepness_, "hard_layer_steepness", 1.0, &steepnessHint_)
      .About(
          "How much steeper the rock of a hard layer stands: 0 leaves slopes as they are, 4 makes cliffs.");
  Param(plateauBuildup_, "plateau_buildup", 0.5)
      .About(
          "How much flat ground lies on top of a layer, in layer thicknesses. 0 leaves cliffs without "
          "ledges.");
  Param(spacing_, "hard_layer_spacing", 200.0, &lengthHint_)
      .About("Distance from one hard layer to the next, metres.");
  Param(numOctaves_, "num_octaves", 8)
      .About(
          "How many times finer layers are cut into the coarse ones, each half as thick. 1 leaves plain "
          "terraces.");
  Gui(trGuiHiddenOpen);
  Param(degreeFix_, "degree_fix", 0)
      .About(
          "On: the tilt direction is in degrees. Off in projects that were made when it was taken for "
          "radians.");
  Gui(trGuiHiddenClose);
  Param(tiltDirection_, "strata_tilt_direction", 90.0, &directionHint_)
      .About("Compass direction towards which the layers rise, degrees from north (+z) to east (+x).");
  Param(tiltAngle_, "strata_tilt_angle", 0.0, &angleHint_)
      .About("How far the layers are tilted, degrees. 90 and more count as none.");

  Param(useMask_, "blend_by_shader", 0)
      .Display("Mask by shader")
      .About(
          "Lets the mask shader tell where layers are cut, and how steeply. On without a mask shader, "
          "nothing is.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(maskShader_, "blending_shader", "")
      .Display("Mask shader")
      .About(
          "The shader whose brightness is the mask: white cuts layers in full, black leaves the ground as it "
          "is.");
  Gui(trGuiIndentOpen);
  Param(invertMask_, "invert_blendshader", 0)
      .Display("Invert mask")
      .About("Takes the mask the other way round: black cuts layers, white leaves the ground alone.");
  Gui(trGuiIndentClose);
  AddGuiAction({"blend_by_shader"}, {"blending_shader"}, 3);
  AddGuiAction({"blend_by_shader"}, {"invert_blendshader"}, 2);
  UpdateDerived();
}

long StrataAndOutcropsShaderV2::OnFirstCreate() {
  DisplacementEffect::OnFirstCreate();
  SetParam("degree_fix", 1, this);
  return 1;
}

void StrataAndOutcropsShaderV2::OnParamChanged(long index, trBase* who) {
  DisplacementEffect::OnParamChanged(index, who);
  trSwitchFollowsLink(this, index, who, maskShader_, useMask_, "blend_by_shader");
}

void StrataAndOutcropsShaderV2::UpdateDerived() {
  DisplacementEffect::UpdateDerived();
  // The arctangent, where one would expect the tangent: scenes have their shape from it. Likewise projects
  // from before the fix have the sine and cosine of as many radians as they say degrees.
  tiltSlope_ = std::fabs(tiltAngle_) < 90 ? std::atan(tiltAngle_ * kDegreesToRadians) : 0;
  const double direction = degreeFix_ ? tiltDirection_ * kDegreesToRadians : tiltDirection_;
  tiltAxis_ = {std::sin(direction), 0, std::cos(direction)};
}

bool StrataAndOutcropsShaderV2::Mask(trShadingInterface& si, double& mask) const {
  mask = 1;
  if (!useMask_) return true;
  trShader* const shader = LinkedShader(maskShader_);
  if (!shader) return false;
  trFCol colour = Tamed(shader->FColValueTS(si));
  for (int i = 0; i < 3; ++i) colour[i] = std::max(colour[i], 0.0f);
  const float value = Luminance(colour);
  mask = invertMask_ ? std::max(1.0f - value, 0.0f) : value;
  return true;
}

double StrataAndOutcropsShaderV2::Folded(double height, double base, double depth, double mask) const {
  const double end = std::min(plateauBuildup_, (spacing_ - depth) / depth) + 1;
  // In depths above a layer's foot: it is `steepness` times as steep up to the height of 1, and the rest, up
  // to `end`, is the plateau.
  const double steepness = mask * steepness_ + 1, full = 1 / steepness, perRest = 1 / (end - full);
  double x = height, spacing = spacing_, perSpacing = 1 / spacing, perDepth = 1 / depth;
  for (long n = std::min(numOctaves_, kMostOctaves);; --n) {
    const double top = std::ceil((x - (depth * (end - 1) + base)) * perSpacing) * spacing + base;
    const double y = (x - top) * perDepth + 1;
    // Without branches, which nobody could foretell: all three are worked out and one is taken.
    const double steep = y * steepness, v = (y - full) * perRest, plateau = end * v + (1 - v);
    const double folded = steep > 1 ? plateau : steep;
    const double u = ((y > 0) & (y < end)) ? folded : y;
    x = (u - 1) * depth + top;
    if (n < 2) return x;
    base += spacing * 0.25;
    depth *= 0.5, perDepth *= 2;
    spacing *= 0.5, perSpacing *= 2;
  }
}

long StrataAndOutcropsShaderV2::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  double mask;
  if (!Mask(si, mask)) return 0;
  const double depth = std::min(depth_, spacing_);
  if (mask == 0 || !(depth > 0)) return 1;

  const double height = Dot(si.P() - si.Pg(), si.Ng());
  const double base = Dot(si.P(), tiltAxis_) * tiltSlope_ + altitude_;
  const double rise = Folded(height, base, depth, mask) - height;
  if (std::isfinite(rise)) si.P() += si.Ng() * rise;
  return 1;
}
