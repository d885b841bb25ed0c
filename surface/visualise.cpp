// tex_coords_from_XYZ, visualise_normal and visualise_tex_coords.
#include "surface/visualise.h"

long TexCoordsFromXYZ::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (IsEnabled()) si.Pt() = si.P();
  return 1;
}

long TexCoordsFromXYZ::Shade(trShadingInterface& si) {
  ShadeInput(si);
  return 1;
}

VisualiseBase::VisualiseBase() {
  Gui(trGuiGap);
  Param(diffuse_, "diffuse", 0).About("Shows the values as a matt colour, lit by the scene.");
  Param(luminous_, "luminous", 1)
      .About("Shows the values as light of their own, to be read off the picture.");
}

long VisualiseBase::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  return 1;
}

void VisualiseBase::Show(trShadingInterface& si, const trVector& colour) const {
  const trFCol c(static_cast<float>(colour.x), static_cast<float>(colour.y), static_cast<float>(colour.z));
  si.Cutil() = c;
  if (!si.doCo()) return;
  si.SetShadingToLambert(diffuse_ ? c : trFCol());
  if (luminous_) si.Bsdf().Emission() = c;
}

VisualiseNormal::VisualiseNormal() {
  Gui(trGuiGap);
  Param(flipX_, "flip_X", 0).About("Turns the normal's x round.");
  Param(flipY_, "flip_Y", 0).About("Turns the normal's y round.");
  Param(flipZ_, "flip_Z", 1)
      .About("Turns the normal's z round; on, ground that faces south is bright in blue.");
}

long VisualiseNormal::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trVector n = Normalised(si.N());
  if (flipX_) n.x = -n.x;
  if (flipY_) n.y = -n.y;
  if (flipZ_) n.z = -n.z;
  Show(si, n * 0.5 + trVector(0.5, 0.5, 0.5));
  return 1;
}

VisualiseTexCoords::VisualiseTexCoords() {
  Gui(trGuiGap);
  Param(repeat_, "repeat", 1)
      .About("Starts anew at each whole number, so that coordinates show between 0 and 1.");
}

long VisualiseTexCoords::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trVector c = si.Pt();
  if (repeat_) c = c - trVector(std::floor(c.x), std::floor(c.y), std::floor(c.z));
  Show(si, c);
  return 1;
}
