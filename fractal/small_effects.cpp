// twist_and_shear_shader, redirect_shader, magnet_shader, multi_shader, smoothing_filter_shader.
#include "fractal/small_effects.h"

namespace {

/// One millionth, as it has always been rounded: the least squared distance of a magnet, square metres, and
/// the footprint where nothing smooths, metres.
constexpr double kMillionth = 9.999999974752427e-07;

}  // namespace

TwistAndShearShader::TwistAndShearShader() {
  Param(leanFactor_, "lean_factor", 1.0)
      .About("How far points lean for each metre of their height. Negative values lean the other way.");
  Param(leanDirection_, "lean_direction", trVector(1, 0, 0))
      .About("Direction of the lean in the world; its length doesn't matter.");
  Param(baseAltitude_, "base_altitude", 0.0)
      .About(
          "Height above the undisplaced ground at which nothing moves, metres. What lies below leans "
          "backwards.");
}

long TwistAndShearShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  trVector& p = si.P();
  const double height = (Dot(p - si.Pg(), si.Ng()) - baseAltitude_) * leanFactor_;
  // By way of the point, and so rounded as it is.
  const trVector direction = (leanDirection_ + p) - p;
  const double length = direction.Length();
  p += direction * (height / (length > 1e-12 ? length : 1e-12));
  return 1;
}

RedirectShader::RedirectShader() {
  Param(shaders_[0], "X_shader", "")
      .About("A shader that displaces along the world's x axis (east), whatever the surface's normal.");
  Param(shaders_[1], "Y_shader", "")
      .About("A shader that displaces along the world's y axis (up), after the one for x.");
  Param(shaders_[2], "Z_shader", "")
      .About("A shader that displaces along the world's z axis (north), after the one for y.");
}

long RedirectShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const trVector n = si.N();
  for (int axis = 0; axis < 3; ++axis)
    if (trShader* const shader = LinkedShader(shaders_[axis])) {
      si.N() = {};
      si.N()[axis] = 1;
      shader->DisplaceTS(si);
    }
  si.N() = n;
  return 1;
}

MagnetShader::MagnetShader() {
  Param(position_, "position", trVector()).About("Where points are drawn to, in the world, metres.");
  Param(radius_, "radius_of_influence", 1000.0)
      .About(
          "Points up to this distance land on the position; those farther away are drawn less, by the square "
          "of it. Metres.");
}

long MagnetShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const trVector away = position_ - si.P();
  si.P() += away * std::min(radius_ * radius_ / std::max(away.LengthSquared(), kMillionth), 1.0);
  return 1;
}

MultiShader::MultiShader() {
  for (int i = 0; i < kShaders; ++i)
    Param(shaders_[i], ("shader_" + std::to_string(i + 1)).c_str(), "")
        .About("Displaces and shades the parts of an object whose material has this number.");
}

trShader* MultiShader::Chosen(trShadingInterface& si) const {
  const std::int32_t element = si.RenderState().CurrentRay().element;
  return element >= 1 && element <= kShaders ? LinkedShader(shaders_[element - 1]) : nullptr;
}

long MultiShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  trShader* const shader = IsEnabled() ? Chosen(si) : nullptr;
  return shader ? shader->DisplaceTS(si) : 1;
}

long MultiShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  trShader* const shader = IsEnabled() ? Chosen(si) : nullptr;
  return shader ? shader->ShadeTS(si) : 1;
}

SmoothingFilterShader::SmoothingFilterShader() {
  SetRange(scaleHint_, this, {.max = 1000, .focusPower = 2});
  Param(smoothingScale_, "smoothing_scale", 100.0, &scaleHint_)
      .About("Size up to which details of what stands on the input are smoothed away, metres.");
  Param(scaleModulator_, "scale_modulator", "")
      .About("A shader whose value multiplies the smoothing scale at each point. 0 and less smooth nothing.");
}

double SmoothingFilterShader::Widened(trShadingInterface& si) const {
  double scale = std::max(smoothingScale_, 0.0);
  if (trShader* const modulator = LinkedShader(scaleModulator_))
    scale *= std::max(Tamed(modulator->FloatValueTS(si)), 0.0f);
  // Footprints of filters one after the other add up as variances do.
  const double sum = si.SmoothSize() * si.SmoothSize() + scale * scale;
  return sum > 1e-12 ? std::sqrt(sum) : kMillionth;
}

long SmoothingFilterShader::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->DisplaceTS(si), 1;
  const double footprint = si.SmoothSize();
  si.SmoothSize() = Widened(si);
  input->DisplaceTS(si);
  si.SmoothSize() = footprint;
  return 1;
}

long SmoothingFilterShader::Shade(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->ShadeTS(si), 1;
  const double footprint = si.SmoothSize();
  si.SmoothSize() = Widened(si);
  input->ShadeTS(si);
  si.SmoothSize() = footprint;
  return 1;
}

unsigned char SmoothingFilterShader::HasDisplacement() {
  trShader* const input = InputShader();
  return input && input->HasDisplacementTS();
}
unsigned char SmoothingFilterShader::HasShade() {
  trShader* const input = InputShader();
  return input && input->HasShadeTS();
}
