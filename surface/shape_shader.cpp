// simple_shape_shader.
#include "surface/shape_shader.h"

#include <algorithm>
#include <cmath>

ShapeShader::ShapeShader() {
  SetMenu(typeHint_, this,
          {{"Rectangle", kRectangle}, {"Ellipse", kEllipse}, {"Polygon", kPolygon}, {"Star", kStar}});
  SetMenu(spaceHint_, this,
          {{"On the ground, along x and z", kGround}, {"Texture space, x and z", kTexture}});
  SetMenu(profileHint_, this,
          {{"Linear", kLinear}, {"Smooth", kSmooth}, {"Round", kRound}, {"Hollow", kHollow}});
  sidesHint_.SetParam("min_value", 3.0, this, true);
  sidesHint_.SetParam("max_value", static_cast<double>(kMaxSides), this, true);
  SetRange(shareHint_, this, {.min = 0.0, .max = 1.0});
  SetRange(rotationHint_, this, {.min = -180.0, .max = 180.0});
  SetRange(metresHint_, this, {.min = 0.0, .max = 1e6, .focusPower = 4.0});
  SetRange(amplitudeHint_, this, {.max = 1e6, .focusPower = 4.0});

  GuiTab("Shape", "shape_tab");
  Gui(trGuiBlockOpen);
  Param(type_, "shape_type", kRectangle, &typeHint_)
      .About("The figure: a rectangle, an ellipse, a polygon with equal angles, or a star.");
  Param(numberOfSides_, "number_of_sides", 5, &sidesHint_)
      .About("Sides of a polygon, or points of a star, 3 to 64.");
  Param(starInnerRadius_, "star_inner_radius", 0.4, &shareHint_)
      .About("How far from the middle a star's inner corners lie, as a share of its points' distance.");
  Gui(trGuiGap);
  Param(space_, "position_space", kGround, &spaceHint_)
      .About(
          "Whether the figure lies in the world's x and z, or in those of texture space, where warps and "
          "transforms move it.");
  Param(centre_, "centre", trVector()).About("Middle of the figure, metres; its height doesn't count.");
  Param(size_, "size", tr2Vector(1000, 1000))
      .About("The figure's extent along x and along z before it is rotated, metres.");
  Param(rotation_, "rotation", 0.0, &rotationHint_)
      .About("Degrees by which the figure is turned, from north towards east.");
  Gui(trGuiGap);
  Param(edgeProfile_, "edge_profile", kSmooth, &profileHint_)
      .About(
          "How the figure rises from its outline: straight, as an S, like a dome's foot or like a bowl's "
          "rim.");
  Param(edgeWidth_, "edge_width", 100.0, &metresHint_)
      .About("Metres from the outline inwards over which it rises. 0 cuts it out sharply.");
  Gui(trGuiBlockClose);
  Param(invertShape_, "invert_shape", 0)
      .About("Takes everything but the figure, with the edge still on its inner side.");
  Gui(trGuiRule);
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1)
      .Alias("apply_color")
      .ColourOnly()
      .About("Whether the figure colours the surface, or serves others as a mask.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(colour_, "colour", trRgbLinear709(1.0f))
      .Alias("color")
      .ColourOnly()
      .About("Colour of the figure's inside. White serves as a mask.");
  Gui(trGuiRule);
  GuiTab("Displacement", "displacement_tab");
  Param(applyDisplacement_, "apply_displacement", 0)
      .About("Whether the figure moves the surface, by its height and direction.");
  Gui(trGuiIndentOpen);
  displacementDirection_.Declare(this);
  Param(displacementAmplitude_, "displacement_amplitude", 100.0, &amplitudeHint_)
      .About("Height of the figure's inside over its surroundings, metres; negative digs.");
  Gui(trGuiIndentClose);
  mask_.Declare(this, 0);
  UpdateDerived();
}

void ShapeShader::OnParamChanged(long index, trBase* who) {
  trShader::OnParamChanged(index, who);
  mask_.OnParamChanged(this, index, who);
}

void ShapeShader::UpdateDerived() {
  trShader::UpdateDerived();
  SetParamGuiEnabled("number_of_sides", type_ == kPolygon || type_ == kStar);
  SetParamGuiEnabled("star_inner_radius", type_ == kStar);
  halfX_ = std::clamp(std::fabs(size_.x) / 2, 1e-6, 1e12);
  halfZ_ = std::clamp(std::fabs(size_.y) / 2, 1e-6, 1e12);
  sine_ = std::sin(rotation_ * kDegreesToRadians);
  cosine_ = std::cos(rotation_ * kDegreesToRadians);
  outline_.clear();
  if (type_ != kPolygon && type_ != kStar) return;
  // The first corner lies to the north. Every other corner of a star is an inner one.
  const long corners = std::clamp(numberOfSides_, 3L, kMaxSides) * (type_ == kStar ? 2 : 1);
  for (long i = 0; i < corners; ++i) {
    const double angle = 2 * 3.14159265358979 * static_cast<double>(i) / static_cast<double>(corners);
    const double r = type_ == kStar && i % 2 == 1 ? std::clamp(starInnerRadius_, 0.0, 1.0) : 1.0;
    outline_.emplace_back(r * std::sin(angle) * halfX_, r * std::cos(angle) * halfZ_);
  }
}

/// First order: the implicit function over the length of its gradient.
double ShapeShader::DepthInEllipse(double x, double z) const {
  const double u = x / halfX_, w = z / halfZ_, k = std::sqrt(u * u + w * w);
  if (k >= 1) return 0;
  const double gradient = std::sqrt(u * u / (halfX_ * halfX_) + w * w / (halfZ_ * halfZ_));
  return std::min(GuardedDivide(k * (1 - k), gradient) + (k < 1e-9 ? halfX_ + halfZ_ : 0.0),
                  std::min(halfX_, halfZ_));
}

/// Distance to the nearest side, for points with an odd number of sides to their east.
double ShapeShader::DepthInOutline(double x, double z) const {
  double nearest = HUGE_VAL;
  bool isInside = false;
  for (size_t i = 0, j = outline_.size() - 1; i < outline_.size(); j = i++) {
    const tr2Vector &a = outline_[j], &b = outline_[i];
    const double ex = b.x - a.x, ez = b.y - a.y, px = x - a.x, pz = z - a.y;
    const double along = std::clamp(GuardedDivide(px * ex + pz * ez, ex * ex + ez * ez), 0.0, 1.0);
    const double dx = px - ex * along, dz = pz - ez * along;
    nearest = std::min(nearest, dx * dx + dz * dz);
    if ((a.y > z) != (b.y > z) && px < pz * ex / ez) isInside = !isInside;
  }
  return isInside ? std::sqrt(nearest) : 0;
}

double ShapeShader::DepthInside(double x, double z) const {
  const double inX = halfX_ - std::fabs(x), inZ = halfZ_ - std::fabs(z);
  if (!(inX > 0 && inZ > 0)) return 0;
  if (type_ == kEllipse) return DepthInEllipse(x, z);
  return outline_.empty() ? std::min(inX, inZ) : DepthInOutline(x, z);
}

double ShapeShader::Coverage(trShadingInterface& si) const {
  const trVector d = (space_ == kTexture ? si.Pt() : si.Pg()) - centre_;
  // A rotation turns north towards east, as headings do.
  const double depth = DepthInside(d.x * cosine_ - d.z * sine_, d.x * sine_ + d.z * cosine_);
  double t = 0;
  if (depth > 0) t = std::min(depth / std::max(edgeWidth_, 1e-9), 1.0);
  if (edgeProfile_ == kSmooth) t = SmoothStep(t);
  if (edgeProfile_ == kRound) t = std::sqrt(t * (2 - t));
  if (edgeProfile_ == kHollow) t = 1 - std::sqrt(1 - t * t);
  return invertShape_ ? 1 - t : t;
}

bool ShapeShader::Amount(trShadingInterface& si, float& amount) const {
  if (!mask_.Evaluate(si, 1.0 / std::min(halfX_, halfZ_), amount)) return false;
  if (amount != 0.0f) amount *= static_cast<float>(Coverage(si));
  return true;
}

long ShapeShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled() || !applyDisplacement_) return 1;
  float amount;
  if (!Amount(si, amount)) return 0;
  if (amount != 0.0f) si.P() += displacementDirection_.Of(si) * (displacementAmplitude_ * amount);
  return 1;
}

long ShapeShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled() || !applyColour_ || !si.doCd()) return 1;
  float amount;
  if (!Amount(si, amount)) return 0;
  if (amount == 0.0f) return 1;
  const trFCol alpha(amount), colour = colour_.ToRender() * amount;
  si.Cutil() = Tamed(si.Cutil() * (trFCol(1.0f) - alpha) + colour);
  if (si.doCo()) {
    si.Bsdf().Scale(trFCol(1.0f) - alpha);
    si.Bsdf().AddLambert(Tamed(colour));
  }
  return 1;
}
