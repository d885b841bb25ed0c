// Lighting of what a ray's march kept: lights dimmed by the cloud itself, and light from around.
#include <algorithm>
#include <cmath>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"

namespace {

constexpr float kLeastTint = 1e-6f;
/// Of clouds that take no light: evenly scattered, a quarter of it comes back from each direction.
constexpr float kWhite = 0.25f;

/// How far light from around goes on its way before it is asked for again, in steps, and in steps of
/// progressive renders.
constexpr int kEnviroSteps = 16, kProgressiveEnviroSteps = 256;

float LargestMagnitude(const trFCol& c) {
  return std::max(std::fabs(c.r), std::max(std::fabs(c.g), std::fabs(c.b)));
}

}  // namespace

long CloudLayerV2::EvaluateRaySample(trRenderState& state, trAtmosSample& sample) {
  sample.colourDirect = sample.colourEnviro = trFCol();
  if (sample.index < 0) {
    sample.opacityDirect = sample.opacityEnviro = ShadowMapOpacity(sample.position);
    return 1;
  }
  CloudState& data = *static_cast<CloudState*>(sample.rayData);
  const CloudStep& step = data.steps[static_cast<size_t>(sample.index)];
  const trFCol opacity = trFCol(1.0f) - step.transmission;
  sample.opacityDirect = sample.opacityEnviro = opacity;

  const CloudThread& thread = ThreadOfRay(state);
  trRenderState::Ray& ray = state.CurrentRay();
  if (!ray.wantsColour || thread.voxelSolving) return 1;
  trFCol tint = thread.usesScatterColour ? derived_.scatterColour : derived_.cloudColour;
  // Where all scatterings are counted, more than all of the light can't be sent on.
  if (layout_.usesVoxelScatter)
    for (int c = 0; c < 3; ++c) tint[c] = std::min(tint[c], kWhite);
  if (!(LargestMagnitude(tint) > kLeastTint)) return 1;

  const trRayGuard guard(state);
  ray.tracesShadows = ray.tracesShadows && settings_.enableRayTracedShadows;
  // A sample that hardly shows isn't worth good light.
  const double contribution = (opacity * sample.throughput).MaxChannel() * ray.quality;
  ray.quality = std::sqrt(std::max(1e-6, contribution));
  trFCol direct, enviro;
  ShadeStep(state, sample, data, direct, enviro);
  sample.colourDirect = direct * tint * opacity;
  sample.colourEnviro = enviro * tint * opacity;
  return 1;
}

float CloudLayerV2::UnresolvedFade(const trRenderState& state, const trVector& point) const {
  const trRenderState::Ray& ray = state.CurrentRay();
  if (!settings_.darkerUnresolvedScattering || !(ray.nearFade > 0)) return 1.0f;
  return static_cast<float>(std::min(1.0, (point - ray.origin).Length() / ray.nearFade));
}

float CloudLayerV2::TerminatorDarkness(const trLightState& light, const trVector& point) const {
  if (!(settings_.fakeDarkPower > 0)) return 1.0f;
  const double c = Dot(Normalised(point - settings_.centre), light.Dir(point));
  return static_cast<float>(std::pow(std::max(0.0, 0.5 + 0.5 * c), settings_.fakeDarkPower) *
                            Logistic(c * settings_.fakeDarkSharpness));
}

CloudLayerV2::Modulators CloudLayerV2::ModulatorsAt(trRenderState& state, const trVector& point,
                                                    bool hasLights, bool hasEnviro) const {
  Modulators found;
  const bool asksShadow = hasLights && derived_.Link(CloudLink::kShadow);
  if (!asksShadow && !derived_.Link(CloudLink::kDirectLight) && !derived_.Link(CloudLink::kEnviroLight) &&
      !derived_.Link(CloudLink::kAmbientLight))
    return found;
  CloudProbe probe = Probe(state);
  probe.MoveTo(point);
  if (asksShadow)
    found.shadow = trFCol(std::clamp(1.0f - Luminance(probe.Modulator(CloudLink::kShadow)), 0.0f, 1.0f));
  found.direct = probe.Modulator(CloudLink::kDirectLight);
  if (hasEnviro) found.enviro = probe.Modulator(CloudLink::kEnviroLight);
  found.ambient = probe.Modulator(CloudLink::kAmbientLight);
  return found;
}

CloudLayerV2::Depths CloudLayerV2::DepthsOf(const CloudStep& step) const {
  Depths depths;
  const float a = derived_.enviroAnisotropy;
  depths.up = 1.0f + a;
  depths.down = 1.0f - a;
  const bool isFromSpace = settings_.viewFromSpace != 0;
  depths.extra = isFromSpace ? 4.0f : 0.0f;
  if (!settings_.improvedLightingModel || derived_.fakeScatter == 0) return depths;
  const float z =
      Luminance(step.density) * 0.03f * derived_.sqrtEdge * derived_.opticalDepth * step.thickness;
  const float deep = std::max(0.0f, 1.0f + z);
  if (!isFromSpace) depths.extra = std::clamp(std::pow(deep, derived_.fakeScatter) - 1.0f, -1.0f, 4.0f);
  if (a != 0) {
    const float fading = std::pow(std::max(1e-6f, 1.0f + 0.5f * z), -derived_.fakeScatter);
    depths.up = std::clamp((fading * 2.0f - 1.0f) * a + 1.0f, 0.0f, 2.0f);
    depths.down = 2.0f - depths.up;
  }
  return depths;
}

void CloudLayerV2::ShadeStep(trRenderState& state, const trAtmosSample& sample, CloudState& data,
                             trFCol& direct, trFCol& enviro) {
  const CloudStep& step = data.steps[static_cast<size_t>(sample.index)];
  const Depths depths = DepthsOf(step);
  const Modulators modulators = ModulatorsAt(state, sample.position, !data.lights.empty(), data.wantsEnviro);
  CloudThread& thread = Thread(state);
  {
    const CloudNesting nesting(state, thread);
    thread.inLightingSample = true;
    // Light falls through a flat cloud as through a thick one.
    if (settings_.renderingMethod == 0) thread.force3D = true;
    const trVector spot(step.lightSpot, step.lightSpot, step.lightSpot);
    for (const CloudLight& light : data.lights) {
      trFCol colour = LightOf(state, thread, light, sample.position, spot, depths.extra);
      colour *= TerminatorDarkness(*light.light, sample.position);
      if (light.isShadowed) colour *= modulators.shadow;
      direct += colour;
    }
  }
  direct *= modulators.direct * UnresolvedFade(state, sample.position);
  AddEnviro(state, sample, data, depths, modulators.enviro, enviro);
  enviro += settings_.ambient.ToRender() * modulators.ambient;
}

trFCol CloudLayerV2::LightOf(trRenderState& state, CloudThread& thread, const CloudLight& light,
                             const trVector& point, const trVector& spot, float extra) const {
  if (!settings_.improvedLightingModel) {
    thread.densityScale = 1.0f - static_cast<float>(std::min(0.99, settings_.lightPropagation));
    return light.light->Intensity(state, point, spot) * light.phase;
  }
  if (!light.isShadowed) {
    thread.densityScale = 1.0f;
    return light.light->Intensity(state, point, spot) * light.phase;
  }
  if (!settings_.viewFromSpace) {
    // A strong glow sees more of the medium, a weak one less.
    thread.densityScale = std::exp(-std::sqrt(std::max(0.0f, light.inversePhase)) *
                                   static_cast<float>(settings_.lightPropagation));
    return light.light->Intensity(state, point, spot) * (extra + light.phase);
  }
  thread.densityScale = 1.0f / std::max(1e-12f, derived_.propagationDecay);
  const trFCol through = light.light->Intensity(state, point, spot);
  thread.densityScale = 1.0f;
  return through * light.phase + light.light->Intensity(state, point, spot) * extra;
}

void CloudLayerV2::AddEnviro(trRenderState& state, const trAtmosSample& sample, CloudState& data,
                             const Depths& depths, const trFCol& modulator, trFCol& enviro) {
  if (derived_.enviro.IsBlack()) return;
  trVoxelLightingSystem* const lighting =
      state.Shading().RenderContext() == trRenderContext::kProgressive && state.IsAProgressiveRenderer()
          ? state.VoxelLightingSystem()
          : nullptr;
  const auto isDue = [&](int period, int phase) {
    const bool due = sample.index - data.lastEnviroIndex >= period || (phase + sample.index) % period == 0;
    if (due) data.lastEnviroIndex = sample.index;
    return due;
  };
  if (lighting) {
    if (isDue(kProgressiveEnviroSteps, data.enviroPhase256))
      data.enviroUp = data.enviroDown =
          derived_.enviro * ProgressiveEnviro(state, *lighting, sample.position) * 2.0f;
  } else {
    if (!data.wantsEnviro) return;
    if (isDue(kEnviroSteps, data.enviroPhase16)) {
      CloudThread& thread = Thread(state);
      const CloudNesting nesting(state, thread);
      thread.usesScatterColour = true;
      const double radius = data.steps[static_cast<size_t>(sample.index)].enviroSpot * kEnviroSteps;
      trFCol above, below;
      state.EnviroIlluminationInAtmosphereAniso(sample.position, {radius, radius, radius}, above, below);
      data.enviroUp = derived_.enviro * above;
      data.enviroDown = derived_.enviro * below;
    }
  }
  enviro += (data.enviroUp * depths.up + data.enviroDown * depths.down) * modulator;
}

trFCol CloudLayerV2::ProgressiveEnviro(trRenderState& state, trVoxelLightingSystem& lighting,
                                       const trVector& point) {
  if (state.CurrentRay().depth > lighting.DepthLimit()) return {};
  if (trVoxelLightingSystem::sIsDuringLookup()) return lighting.OneCachelessBackgroundSample(state, point);
  return lighting.LookupIsotropicBackgroundProgressive(voxels_->indirect, state, point);
}
