// glass_shader: transparent solids and thin panes.
#pragma once

#include "surface/sub_surface.h"

class GlassShader : public trShader {
 public:
  GlassShader();
  ~GlassShader() override;
  void OnParamChanged(long index, trBase* who) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 0; }

 private:
  void Update();

  unsigned char isDoubleSided_ = 0;
  trManRgb reflectivity_, reflectionTint_, transparency_;
  double indexOfRefraction_ = 0, highlightIntensity_ = 0, causticIntensity_ = 0, specularRoughness_ = 0;
  trShaderLink roughnessFunction_;
  SubSurface inside_;
  ReflectiveShader* reflective_ = nullptr;  ///< hidden
};
