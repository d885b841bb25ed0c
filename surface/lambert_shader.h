// lambert_shader: the plain diffuse surface, translucent if wanted.
#pragma once

#include "core/shader.h"

class LambertShader : public trSurfaceShader {
 public:
  LambertShader();
  using trSurfaceShader::SetParamFromString;
  long SetParamFromString(const char* name, const trString& value, trBase* who) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 0; }

 private:
  trManRgb diffuseColour_, translucencyTint_;
  unsigned char useExistingColour_ = 0, translucent_ = 0;
  double translucencyAmount_ = 1;
};
