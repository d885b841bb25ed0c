// warp_input_shader and warp_merge_shader.
#include "fractal/warp_shaders.h"

#include "core/idioms.h"

namespace {

/// While it lives the texture point is where the warper displaces it to, as if it were a surface point.
class WarpedTexture {
 public:
  WarpedTexture(trShadingInterface& si, const trShaderLink& warper) : si_(si), pt_(si.Pt()) {
    auto* const shader = LinkedShader(warper);
    if (!shader) return;
    const trVector p = si.P(), n = si.N();
    si.P() = si.Pt();
    shader->DisplaceTS(si);
    si.Pt() = si.P();
    si.P() = p;
    si.N() = n;
  }
  ~WarpedTexture() { si_.Pt() = pt_; }

 private:
  trShadingInterface& si_;
  const trVector pt_;
};

}  // namespace

WarpInputShader::WarpInputShader() {
  SetAbout(this, "input_node", "Network that is looked up at the shifted points.");
  Param(warper_, "warper", "")
      .About("Shader whose displacement shifts the texture points: a fractal, for instance.");
}

long WarpInputShader::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->DisplaceTS(si), 1;
  const WarpedTexture warped(si, warper_);
  input->DisplaceTS(si);
  return 1;
}

long WarpInputShader::Shade(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->ShadeTS(si), 1;
  const WarpedTexture warped(si, warper_);
  input->ShadeTS(si);
  return 1;
}

WarpShader::WarpShader() {
  Param(warper_, "warper", "")
      .About("Shader whose displacement shifts the texture points: a fractal, for instance.");
  Param(shader_, "shader", "")
      .About("Network that is looked up at the shifted points. The input stays as it is.");
}

long WarpShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  trShader* const shader = IsEnabled() ? WarpedShader() : nullptr;
  if (!shader) return 1;
  const WarpedTexture warped(si, warper_);
  shader->DisplaceTS(si);
  return 1;
}

long WarpShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  trShader* const shader = IsEnabled() ? WarpedShader() : nullptr;
  if (!shader) return 1;
  const WarpedTexture warped(si, warper_);
  shader->ShadeTS(si);
  return 1;
}

unsigned char WarpShader::HasDisplacement() {
  trShader* const shader = WarpedShader();
  return shader && shader->HasDisplacementTS();
}
unsigned char WarpShader::HasShade() {
  trShader* const shader = WarpedShader();
  return shader && shader->HasShadeTS();
}
