// vortex_warp_shader and vortex_vector.
#include "fractal/vortex_warp_shader.h"

#include "core/idioms.h"

void Vortex::Declare(trBase* node) {
  node->Param(centre_, "centre", trVector())
      .About("Point on the axis of the swirl, metres; what lies there stays in its place.");
  node->Param(radius_, "radius", 1000.0)
      .About(
          "Distance from the axis, metres, at which the turn has fallen to half of what it is in the "
          "middle.");
  node->Param(vorticity_, "vorticity", 1.0)
      .About("Whole turns that the middle makes. Above 1 the swirl winds itself into a spiral.");
  node->Param(reverseDirection_, "reverse_direction", 0)
      .About("Turns the other way round, as storms of the other hemisphere do.");
  node->Gui(trGuiGapLarge);
  node->Gui(trGuiRadioOpen);
  node->Param(xAxis_, "x_axis", 0).About("The swirl's axis lies along x; one of the three axes is on.");
  node->Param(yAxis_, "y_axis", 1)
      .About("The swirl's axis stands along y, which is the vertical near the origin.");
  node->Param(zAxis_, "z_axis", 0).About("The swirl's axis lies along z; one of the three axes is on.");
  node->Gui(trGuiRadioClose);
  node->AddGuiAction({"x_axis"}, {"y_axis", "z_axis"}, 1);
  node->AddGuiAction({"y_axis"}, {"z_axis", "x_axis"}, 1);
  node->AddGuiAction({"z_axis"}, {"x_axis", "y_axis"}, 1);
}

trVector Vortex::Turned(const trVector& pt) const {
  // The plane of the swirl, by the numbers of its axes.
  const int a = xAxis_ ? 1 : yAxis_ ? 2 : 0, b = xAxis_ ? 2 : yAxis_ ? 0 : 1;
  const trVector d = pt - centre_;
  const double u = GuardedDivide(d[a], radius_), w = GuardedDivide(d[b], radius_);
  const double turns = reverseDirection_ ? -vorticity_ : vorticity_;
  const double t = 2 * 3.14159265358979 * turns / (std::sqrt(u * u + w * w) + 1);
  trVector swirled = pt;
  swirled[a] += (std::cos(t) * u - std::sin(t) * w - u) * radius_;
  swirled[b] += (std::cos(t) * w + std::sin(t) * u - w) * radius_;
  return swirled;
}

VortexWarpShader::VortexWarpShader() {
  SetAbout(this, "input_node", "Network that is looked up in the swirled space.");
  vortex_.Declare(this);
}

long VortexWarpShader::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  const trVector pt = si.Pt();
  if (IsEnabled()) si.Pt() = vortex_.Turned(pt);
  input->DisplaceTS(si);
  if (IsEnabled()) si.Pt() = pt;
  return 1;
}

long VortexWarpShader::Shade(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  const trVector pt = si.Pt();
  if (IsEnabled()) si.Pt() = vortex_.Turned(pt);
  input->ShadeTS(si);
  if (IsEnabled()) si.Pt() = pt;
  return 1;
}

trBoundingBox VortexWarpShader::BoundingBoxL() {
  const double size = 2 * std::fabs(vortex_.Radius());
  return trBoundingBox::FromCentre(vortex_.Centre(), {size, size, size});
}

void VortexWarpShader::MoveHandlePositionT(const trVector& delta) {
  SetParam("centre", vortex_.Centre() + delta, trWhoUserIndirect);
}

VortexVector::VortexVector() {
  Param(input_, "input", "")
      .About("Function whose vector is turned, such as a position. Without one the constant is.");
  Param(constant_, "constant", trVector())
      .About("The vector that is turned where nothing is linked to the input.");
  vortex_.Declare(this);
}

trVector VortexVector::VectorValue(trShadingInterface& si) {
  trShader* const input = LinkedShader(input_);
  const trVector v = input ? input->VectorValueTS(si) : constant_;
  return IsEnabled() ? vortex_.Turned(v) : v;
}
