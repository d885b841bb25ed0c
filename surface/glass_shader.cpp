// glass_shader.
#include "surface/glass_shader.h"

namespace {

constexpr int kBeckmannOV2 = 1;
/// Keeps highlights of polished glass wide enough to be seen.
constexpr float kLeastRoughness = 0.005f;

}  // namespace

GlassShader::GlassShader() {
  GuiTab("Main", "main_tab");
  Param(isDoubleSided_, "double-sided_surface", 0).Display("Double-sided / Thin-walled");
  Param(reflectivity_, "reflectivity", trRgbLinear709(1.0f));
  Param(reflectionTint_, "reflection_tint", trRgbLinear709(1.0f));
  Param(transparency_, "transparency", trRgbLinear709(1.0f));
  Param(indexOfRefraction_, "index_of_refraction", 1.5);
  Param(highlightIntensity_, "highlight_intensity", 1.0);
  Param(causticIntensity_, "caustic_intensity", 1.0);
  Param(specularRoughness_, "specular_roughness", 0.01);
  Param(roughnessFunction_, "specular_roughness_function", "").Display("Roughness function");
  GuiTab("Sub-surface", "sub-surface_tab");
  inside_.Declare(this, trRgbLinear709(1.0f), 2);

  reflective_ = CreateReflectiveChild(this);
  UpdateDerived();
}

GlassShader::~GlassShader() { trDestroyObject(reflective_); }

void GlassShader::UpdateDerived() {
  trShader::UpdateDerived();
  if (!reflective_) return;
  reflective_->isThinWalled = isDoubleSided_;
  reflective_->SetParam("reflectivity", reflectivity_, this);
  reflective_->SetParam("reflection_tint", reflectionTint_, this);
  reflective_->SetParam("highlight_intensity", highlightIntensity_, this);
  reflective_->SetParam("caustic_intensity", causticIntensity_, this);
  reflective_->SetParam("specular_roughness", specularRoughness_, this);
  reflective_->SetParam("index_of_refraction", indexOfRefraction_, this);
  reflective_->SetParam("highlight_model", kBeckmannOV2, this);
  reflective_->transparency = transparency_;
  inside_.Give(*reflective_);
  reflective_->SetAddends(kLeastRoughness, 0);
}

long GlassShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  return 1;
}

long GlassShader::Shade(trShadingInterface& si) {
  // What lies beneath isn't seen through glass by itself: rays go there.
  if (!IsEnabled()) {
    ShadeInput(si);
    return 1;
  }
  if (!reflective_) return 1;
  trFCol roughness(1.0f);
  MultiplyByShader(roughness, LinkedShader(roughnessFunction_), si);
  reflective_->ThreadState(si.Thread()).roughnessScale = Luminance(roughness);
  reflective_->ShadeTS(si);
  return 1;
}
