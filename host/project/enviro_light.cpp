// Sky light's parameters.
#include "host/project/enviro_light.h"

#include "core/idioms.h"

trEnviroLightNode::trEnviroLightNode() {
  DeclareTrue("is_enviro_light");
  DeclareTrue("is_light");
  SetRange(strengthHint_, this, {.min = 0, .max = 4});
  Param(enable_, "enable", 1)
      .About("Whether light from the sky and the ground counts. Off, what no sun reaches is dark.");
  Param(colour_, "colour", trRgbLinear709(1.0f))
      .About("Tint of the light that comes from sky and ground. White leaves it as it is.");
  Param(onSurfaces_, "strength_on_surfaces", 1.0, &strengthHint_)
      .About(
          "Factor of the light that surfaces get from around. 1 is what is really there; less makes shadows "
          "deeper.");
  Param(inAtmosphere_, "strength_in_atmosphere", 1.0, &strengthHint_)
      .About("Factor of the light that air and clouds get from around. 1 is what is really there.");
}
