// Sky light's parameters.
#include "host/project/enviro_light.h"

#include "core/idioms.h"

trEnviroLightNode::trEnviroLightNode() {
  DeclareTrue("is_enviro_light");
  DeclareTrue("is_light");
  SetRange(strengthHint_, this, {.min = 0, .max = 4});
  Param(enable_, "enable", 1);
  Param(colour_, "colour", trRgbLinear709(1.0f));
  Param(onSurfaces_, "strength_on_surfaces", 1.0, &strengthHint_);
  Param(inAtmosphere_, "strength_in_atmosphere", 1.0, &strengthHint_);
}
