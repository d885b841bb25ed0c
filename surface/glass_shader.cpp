// glass_shader.
#include "surface/glass_shader.h"

namespace {

constexpr int kBeckmannOV2 = 1;
/// Keeps highlights of polished glass wide enough to be seen.
constexpr float kLeastRoughness = 0.005f;

}  // namespace

GlassShader::GlassShader() {
  SetAbout(this, "input_node",
           "Network that displaces the surface. Its colours show only where the glass is off.");
  GuiTab("Main", "main_tab");
  Param(isDoubleSided_, "double-sided_surface", 0)
      .Display("Double-sided / Thin-walled")
      .About(
          "Takes the surface for a thin pane that rays pass straight through. Off, it is the border of a "
          "solid.");
  Param(reflectivity_, "reflectivity", trRgbLinear709(1.0f))
      .About("Strength and colour of reflections. 1 is what the index of refraction gives.");
  Param(reflectionTint_, "reflection_tint", trRgbLinear709(1.0f))
      .About("Colour of reflections alone; what passes the surface isn't changed by it.");
  Param(transparency_, "transparency", trRgbLinear709(1.0f))
      .About("Strength and colour of the light that passes the surface. Black lets none through.");
  Param(indexOfRefraction_, "index_of_refraction", 1.5)
      .About("How strongly light is bent and reflected: 1.33 is water, 1.5 glass, 2.4 diamond.");
  Param(highlightIntensity_, "highlight_intensity", 1.0)
      .About("Strength of the sun's own reflection in sharp rays. 1 is true.");
  Param(causticIntensity_, "caustic_intensity", 1.0)
      .About("Strength of sunlight on the glass as broad rays see it, after diffuse bounces. 1 is true.");
  Param(specularRoughness_, "specular_roughness", 0.01)
      .About("Roughness of the surface: 0 is polished, more is frosted.");
  Param(roughnessFunction_, "specular_roughness_function", "")
      .Display("Roughness function")
      .About("Shader whose brightness multiplies the roughness.");
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
