// glass_shader: transparent solids and thin panes.
#pragma once

#include "surface/sub_surface.h"

class GlassShader : public trShader {
 public:
  GlassShader();
  ~GlassShader() override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 0; }

 private:
  unsigned char isDoubleSided_;
  trManRgb reflectivity_, reflectionTint_, transparency_;
  double indexOfRefraction_, highlightIntensity_, causticIntensity_, specularRoughness_;
  trShaderLink roughnessFunction_;
  SubSurface inside_;
  ReflectiveShader* reflective_ = nullptr;  ///< hidden
};
