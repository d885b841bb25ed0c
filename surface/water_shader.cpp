// water_shader.
#include "surface/water_shader.h"

#include <cmath>
#include <cstring>

#include "core/seed.h"

namespace {

constexpr int kPerlinRidges = 2, kBeckmannOV2 = 1;
constexpr long kWindSeedOffset = 557;
constexpr double kUsualBlendRate = 0.5;

trShader* CreateFractal(trBase* owner) {
  trBase* const child = trCreateObject("power_fractal_shader_v3", owner, 0);
  auto* const shader = dynamic_cast<trShader*>(child);
  if (!shader) trDestroyObject(child);
  return shader;
}

}  // namespace

WaterShader::WaterShader() {
  DeclareParams();
  waves_ = CreateFractal(this);
  if (waves_) waves_->SetParam("noise_flavour", kPerlinRidges, this);
  reflective_ = CreateReflectiveChild(this);
  wind_ = CreateFractal(this);
  if (wind_) {
    wind_->SetParam("clamp_high_colour", 0, this);
    wind_->SetParam("clamp_low_colour", 0, this);
  }
  UpdateDerived();
}

WaterShader::~WaterShader() {
  trDestroyObject(waves_);
  trDestroyObject(reflective_);
  trDestroyObject(wind_);
}

void WaterShader::DeclareParams() {
  GuiTab("Waves", "waves_tab");
  Param(roughness_, "roughness", 0.02)
      .About("Height of waves as a share of their length: 0 is a mirror, 0.1 a steep sea.");
  Param(waveScale_, "wave_scale", 10.0).About("Length of the largest waves, metres.");
  Param(smallestScale_, "smallest_scale", 0.1)
      .About("Length of the finest ripples, metres. Lower it where the camera is near the water.");
  Param(windPatchEffect_, "wind_patch_effect", 1.0)
      .About("How much calm and ruffled patches differ; 0 is alike everywhere.");
  Param(windPatchSize_, "wind_patch_size", 100.0).About("Size of those patches, metres.");
  Param(windPatchSharpness_, "wind_patch_sharpness", 5.0)
      .About("How hard the border between calm and ruffled water is; 0 turns patches off.");
  Seed(seed_);
  PushButton(randomiseButton_, "randomise_button");
  GuiTab("Reflections", "reflections_tab");
  Param(masterReflectivity_, "master_reflectivity", 1.0)
      .ColourOnly()
      .About("Strength of all reflections. 1 is what the index of refraction gives.");
  Param(indexOfRefraction_, "index_of_refraction", 1.33)
      .ColourOnly()
      .About("How strongly light is bent and reflected; water has 1.33.");
  Param(horizonShift_, "horizon_shift", 0.5)
      .ColourOnly()
      .About(
          "Lets far rough water reflect as the facets turned to the viewer do: higher sky, not the horizon. "
          "0 counts as 0.5.");
  Param(highlightIntensity_, "highlight_intensity", 0.5)
      .ColourOnly()
      .About("Strength of the sun's glitter in sharp rays. 1 is true.");
  Param(causticIntensity_, "caustic_intensity", 0.5)
      .ColourOnly()
      .About("Strength of the sun's reflection as broad rays see it, after diffuse bounces. 1 is true.");
  Param(minHighlightSpread_, "min_highlight_spread", 0.01)
      .ColourOnly()
      .About("Least roughness of highlights, so that glitter of flat water stays wide enough to be seen.");
  GuiTab("Sub-surface", "sub-surface_tab");
  Param(transparency_, "transparency", 0.75)
      .ColourOnly()
      .About("How much light passes the surface, 0 to 1. 0 is opaque water, fast to render.");
  inside_.Declare(this, trManRgb(0.75f, 1.0f, 0.5f), 1);
}

void WaterShader::UpdateDerived() {
  trShader::UpdateDerived();
  inverseWaveScale_ = SafeReciprocal(waveScale_);
  inverseSmallestScale_ = SafeReciprocal(smallestScale_);
  if (waves_) UpdateWaves();
  if (reflective_) UpdateReflection();
  if (wind_) UpdateWind();
}

void WaterShader::UpdateWaves() {
  waves_->SetParam("seed", seed_, this);
  waves_->SetParam("feature_scale", waveScale_, this);
  waves_->SetParam("lead-in_scale", waveScale_, this);
  waves_->SetParam("smallest_scale", std::max(0.01, smallestScale_), this);
  waves_->SetParam("displacement_amplitude", roughness_ * waveScale_, this);
}

void WaterShader::UpdateReflection() {
  reflective_->isThinWalled = 0;
  reflective_->SetParam("reflectivity", trRgbLinear709(1.0f), this);
  reflective_->SetParam("reflection_tint", trRgbLinear709(static_cast<float>(masterReflectivity_)), this);
  reflective_->SetParam("highlight_model", kBeckmannOV2, this);
  reflective_->SetParam("highlight_intensity", highlightIntensity_, this);
  reflective_->SetParam("caustic_intensity", causticIntensity_, this);
  reflective_->SetParam("index_of_refraction", indexOfRefraction_, this);
  // The roughness of a point comes through the record.
  reflective_->SetParam("specular_roughness", 1.0, this);
  reflective_->transparency = trRgbLinear709(static_cast<float>(transparency_));
  inside_.Give(*reflective_);
  for (unsigned i = 0; i < reflective_->NumThreadStates(); ++i) {
    reflective_->ThreadState(i).smallScale = smallestScale_;
    reflective_->ThreadState(i).inverseSmallScale = inverseSmallestScale_;
  }
  const float spread = Tamed(static_cast<float>(minHighlightSpread_));
  reflective_->SetAddends(std::max(0.01f, spread), std::max(0.0f, spread));
}

void WaterShader::UpdateWind() {
  wind_->SetParam("seed", trSeedAfter(seed_, kWindSeedOffset), this);
  wind_->SetParam("feature_scale", windPatchSize_, this);
  wind_->SetParam("lead-in_scale", 10 * windPatchSize_, this);
  wind_->SetParam("lead-in_warp_effect", 1, this);
  wind_->SetParam("smallest_scale", std::max(0.001, std::min(windPatchSize_, smallestScale_)), this);
}

double WaterShader::WindFactor(trShadingInterface& si) const {
  if (!wind_ || windPatchEffect_ == 0 || windPatchSharpness_ == 0) return 1;
  const double n = Tamed(wind_->FloatValueTS(si));
  const double e = trFastExp()(-std::clamp((n - 0.5) * windPatchSharpness_, -50.0, 50.0));
  const double b = 2 / (e + 1);
  if (windPatchEffect_ > 1 && b < 1) return b <= 0 ? 0.0 : std::pow(b, windPatchEffect_);
  return (b - 1) * windPatchEffect_ + 1;
}

long WaterShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const trVector p = si.P(), n = si.N();
  if (waves_) waves_->DisplaceTS(si);
  const double wind = WindFactor(si);
  if (wind == 1) return 1;
  si.P() = si.P() * wind + p * (1 - wind);
  si.N() = si.N() * wind + n * (1 - wind);
  return 1;
}

long WaterShader::Shade(trShadingInterface& si) {
  trRenderState::Ray& ray = si.RenderState().CurrentRay();
  if (!IsEnabled()) {
    ShadeInput(si);
    return 1;
  }
  // What lies beneath isn't the surface that the renderer marked.
  unsigned char flags[sizeof(ray.flags)];
  std::memcpy(flags, ray.flags, sizeof(flags));
  std::memset(ray.flags, 0, sizeof(flags));
  ShadeInput(si);
  std::memcpy(ray.flags, flags, sizeof(flags));
  if (!reflective_) return 1;

  // Waves finer than a pixel become roughness, sooner where they are seen from the side.
  const double roughness = WindFactor(si) * roughness_;
  const trVector toEye = si.RootEye() - si.P();
  const double pixel = toEye.Length() * (ray.pixelAngularSize * ray.pixelFactor);
  const double facing = std::fabs(Dot(Normalised(toEye), si.N())) + 0.1;
  const double kept = std::exp(-(pixel / facing) * 0.5 * inverseWaveScale_);

  ReflectiveThreadState& record = reflective_->ThreadState(si.Thread());
  record.roughnessScale = Tamed(static_cast<float>((1 - kept) * roughness));
  if (horizonShift_ != 0) record.normalBlendRate = horizonShift_;
  reflective_->ShadeTS(si);
  record.normalBlendRate = kUsualBlendRate;
  return 1;
}
