// Shaders that warp texture space by another shader's displacement.
#pragma once

#include "core/shader.h"

/// warp_input_shader: what stands on the input sees texture space as the warper displaces it.
class WarpInputShader : public trSurfaceShader {
 public:
  WarpInputShader();
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

 private:
  trShaderLink warper_;
};

/// warp_merge_shader, and warp_shader: the same for a second shader, which follows the input.
class WarpShader : public trSurfaceShader {
 public:
  WarpShader();
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override;
  unsigned char HasShade() override;

 private:
  trShader* WarpedShader() const { return LinkedShader(shader_); }

  trShaderLink warper_, shader_;
};
