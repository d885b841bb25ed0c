// lambert_shader.
#include "surface/lambert_shader.h"

LambertShader::LambertShader() {
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(1.0f))
      .Alias("diffuse_color")
      .About("Colour of the matt surface, 0 to 1 a channel.");
  Param(useExistingColour_, "use_existing_colour", 0)
      .Alias("use_existing_color")
      .About("Takes the colour that the input left in place of the one above.");
  Param(translucent_, "translucent", 0)
      .About("Lets light through to the other side, as leaves and paper do.");
  Param(translucencyAmount_, "translucency_amount", 1.0)
      .About("How much of the surface's colour comes through, 0 to 1.");
  Param(translucencyTint_, "translucency_tint", trRgbLinear709(1.0f)).About("Colour of what comes through.");
}

long LambertShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  return 1;
}

long LambertShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  if (!useExistingColour_) si.Cutil() = diffuseColour_.ToRender();
  if (!si.doCo()) return 1;
  trFCol transmitted;
  if (translucent_)
    transmitted = Tamed(translucencyTint_.ToRender() * Tamed(static_cast<float>(translucencyAmount_)) *
                        Tamed(si.Cutil()));
  si.SetShadingToLambert(si.Cutil());
  si.Bsdf().AddLobe(trBsdf::Lambert(trLobe::kDiffuseTransmission, transmitted));
  return 1;
}
