// lambert_shader: the plain diffuse surface, translucent if wanted.
#pragma once

#include "core/shader.h"

class LambertShader : public trSurfaceShader {
 public:
  LambertShader();
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 0; }

 private:
  trManRgb diffuseColour_, translucencyTint_;
  unsigned char useExistingColour_, translucent_;
  double translucencyAmount_;
};
