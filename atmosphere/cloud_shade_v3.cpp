// Lighting of the voxel-lit layers: the glow of single scattering, half of it softened, and light that was
// scattered more than once.
#include <algorithm>
#include <cmath>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v3.h"
#include "atmosphere/cloud_scatter.h"

namespace {

/// What of light scattered more than once counts, against the step's weight on the ray.
constexpr float kScatterPrecision = 1500;

/// The softened share of a phase: all of a weak glow, at most 2 of a strong one.
float SoftShare(float phase) { return std::min(phase, 2.0f * (1.0f - std::exp(-0.5f * phase))); }

}  // namespace

trFCol CloudLayerV3::LightOf(trRenderState& state, CloudThread& thread, const CloudLight& light,
                             const trAtmosSample& sample, const CloudStep& step) const {
  const trVector spot(step.lightSpot, step.lightSpot, step.lightSpot);
  const auto intensity = [&](float densityScale) {
    thread.densityScale = densityScale;
    return light.light->Intensity(state, sample.position, spot);
  };
  if (!layout_.usesVoxelScatter) return intensity(derived_.propagationDecay) * light.phase;

  const float soft = SoftShare(light.phase), sharp = light.phase - soft;
  trFCol colour = intensity(std::sqrt(derived_.propagationDecay)) * soft;
  const trRenderState::Ray& ray = state.CurrentRay();
  if (ray.optimisedLighting) {
    thread.densityScale = 1.0f;
    const trVector view = Normalised(sample.position - ray.origin) * step.spot;
    const trFCol precision = sample.throughput * sharp;
    colour += light.light->DEV_IntensityOptimised(state, sample.position, spot, view, precision) * sharp;
  } else if (sharp > state.Random() * light.phase) {
    // By chance, in place of all of it with less weight: one shadow ray for most samples.
    colour += intensity(1.0f) * light.phase;
  }
  return colour;
}

void CloudLayerV3::ShadeStep(trRenderState& state, const trAtmosSample& sample, CloudState& data,
                             trFCol& direct, trFCol& enviro) {
  const CloudStep& step = data.steps[static_cast<size_t>(sample.index)];
  const bool hasScatter = layout_.usesVoxelScatter && Voxels().hasScatter;
  const Modulators modulators =
      ModulatorsAt(state, sample.position, !data.lights.empty(), data.wantsEnviro || hasScatter);
  const float fade = UnresolvedFade(state, sample.position);
  CloudThread& thread = Thread(state);
  const bool isGathering = thread.inVoxelLighting || trVoxelLightingSystem::sIsDuringLookup();
  {
    const CloudNesting nesting(state, thread);
    thread.inLightingSample = true;
    if (settings_.renderingMethod == 0) thread.force3D = true;
    for (const CloudLight& light : data.lights) {
      trFCol colour = LightOf(state, thread, light, sample, step);
      colour *= TerminatorDarkness(*light.light, sample.position);
      if (light.isShadowed) colour *= modulators.shadow;
      direct += colour;
    }
  }
  direct *= modulators.direct * fade;
  if (hasScatter && !isGathering) AddScattered(state, sample, data, fade, modulators, direct, enviro);
  if (!layout_.usesVoxelScatter) AddEnviro(state, sample, data, DepthsOf(step), modulators.enviro, enviro);
  enviro += settings_.ambient.ToRender() * modulators.ambient;
}

trFCol CloudLayerV3::LightOfSoftening(trRenderState& state, const CloudState& data,
                                      const trVector& point) const {
  trFCol taken;
  trFCol light, left;
  const trLightState* const main = Medium()->MainLight(state);
  for (const CloudLight& seen : data.lights) {
    if (seen.light != main || !Voxels().scatter.MainLight(state, point, light, left)) continue;
    const float soft = SoftShare(seen.phase), thinned = std::sqrt(derived_.propagationDecay);
    for (int c = 0; c < 3; ++c) taken[c] = soft * light[c] * (std::pow(left[c], thinned) - left[c]);
  }
  return taken;
}

void CloudLayerV3::AddScattered(trRenderState& state, const trAtmosSample& sample, const CloudState& data,
                                float fade, const Modulators& modulators, trFCol& direct, trFCol& enviro) {
  const CloudStep& step = data.steps[static_cast<size_t>(sample.index)];
  const trRenderState::Ray& ray = state.CurrentRay();
  const auto weight = static_cast<float>(ray.quality) * fade * kScatterPrecision;
  trFCol precision;
  for (int c = 0; c < 3; ++c) {
    const float d =
        ray.optimisedLighting ? std::min(1.0f, step.density[c] * derived_.edgeSharpness) : step.density[c];
    precision[c] = d * derived_.sigma[c] * sample.throughput[c] * weight;
  }
  CloudThread& thread = Thread(state);
  const bool saved = thread.inVoxelLighting;
  thread.inVoxelLighting = true;
  trFCol ofLights, ofBackground;
  const bool isFound = Voxels().scatter.Lookup(state, sample.position, precision, ofLights, ofBackground);
  // What the softened glow lets through thinned clouds was scattered on its way: it is counted here.
  const trFCol counted = isFound ? LightOfSoftening(state, data, sample.position) : trFCol();
  thread.inVoxelLighting = saved;
  if (!isFound) return;
  // Mean radiance, in the units of a light that is scattered evenly.
  for (int c = 0; c < 3; ++c) ofLights[c] = std::max(0.0f, 4.0f * ofLights[c] - counted[c]);
  direct += ofLights * modulators.direct * fade;
  enviro += ofBackground * derived_.enviro * modulators.enviro * (4.0f * fade);
}
