// Evaluation of one stretch of a ray: how much of each medium lies in it, and what light it sends along the
// ray.
#include <cfloat>
#include <cmath>

#include "atmosphere/atmosphere_medium.h"
#include "atmosphere/media_lanes.h"
#include "atmosphere/planet_atmosphere.h"
#include "core/idioms.h"

namespace {

using atmosphere::kLaneRoom, atmosphere::kMediaBlock, atmosphere::kPerMetre;

/// Puts the ray's flags and quality back, on every way out.
class RayGuard {
 public:
  explicit RayGuard(trRenderState::Ray& ray)
      : ray_(ray), tracesShadows(ray.tracesShadows), quality(ray.quality) {}
  ~RayGuard() {
    ray_.tracesShadows = tracesShadows;
    ray_.quality = quality;
  }
  RayGuard(const RayGuard&) = delete;
  RayGuard& operator=(const RayGuard&) = delete;

 private:
  trRenderState::Ray& ray_;

 public:
  const bool tracesShadows;
  const double quality;
};

/// An optical depth that arithmetic can go on with.
float Bounded(double depth) { return depth > 0.0 ? static_cast<float>(std::min(depth, 1e30)) : 0.0f; }

trFCol Bounded(const trFCol& c, double scale) {
  return {Bounded(c.r * scale), Bounded(c.g * scale), Bounded(c.b * scale)};
}

bool IsFinite(const trFCol& c) { return std::fabs(c.r) + std::fabs(c.g) + std::fabs(c.b) <= FLT_MAX; }

}  // namespace

long PlanetAtmosphere::EvaluateRaySample(trRenderState& state, trAtmosSample& sample) {
  sample.colourDirect = sample.colourEnviro = trFCol();
  sample.opacityDirect = sample.opacityEnviro = trFCol(1.0f);
  if (sample.index < 0) return 1;

  trRenderState::Ray& ray = state.CurrentRay();
  AtmosphereRayData& data = *static_cast<AtmosphereRayData*>(sample.rayData);
  AtmosphereSegment& segment = data.segments[sample.index];
  if (sample.index < data.blockFirst || sample.index >= data.blockEnd) EvaluateMedia(data, sample.index);
  sample.opacityDirect = sample.opacityEnviro = segment.opacity;
  if (!ray.wantsColour) return 1;

  segment.blueskyDirect = segment.blueskyEnviro = segment.hazeDirect = segment.hazeEnviro = trFCol();
  {
    const RayGuard guard(ray);
    ray.tracesShadows = ray.tracesShadows && enableRayTracedShadows_;
    // A sample that hardly shows isn't worth good light.
    const float contribution = (segment.opacity * sample.throughput).MaxChannel();
    ray.quality = std::sqrt(std::max(1e-6f, contribution)) * guard.quality;
    if (data.lightCount > 0) AddLights(state, sample, data, segment, guard.quality);
    AddEnviro(state, sample.index, data, segment);
  }
  const trFCol ambient = ambient_.ToRender();
  segment.blueskyEnviro += ambient;
  segment.hazeEnviro += ambient;

  // Each medium shows its horizon colour by its share of the stretch.
  trFCol blueskyShare, hazeShare;
  for (int c = 0; c < 3; ++c) {
    const float tau = segment.opticalDepth[c];
    const float scale = segment.opacity[c] / (tau != 0.0f ? tau : 1.0f);
    blueskyShare[c] = scale * segment.blueskyExtinction[c] * data.blueskyHorizon[c];
    hazeShare[c] = scale * segment.hazeExtinction[c] * data.hazeHorizon[c];
  }
  const trFCol direct = blueskyShare * segment.blueskyDirect + hazeShare * segment.hazeDirect;
  const trFCol enviro = blueskyShare * segment.blueskyEnviro + hazeShare * segment.hazeEnviro;
  if (IsFinite(direct)) sample.colourDirect = direct;
  if (IsFinite(enviro)) sample.colourEnviro = enviro;
  return 1;
}

void PlanetAtmosphere::EvaluateMedia(AtmosphereRayData& data, int first) const {
  const int count = std::min(data.blockSize, data.segmentCount - first);
  data.blockFirst = first;
  data.blockEnd = first + count;
  AtmosphereSegment* segments = &data.segments[first];

  // Heights of the boundaries and of the lit points, not below the floor.
  const auto heightOf = [this](const trVector& p) { return (p - centre_).Length() - radius_; };
  atmosphere::MediaBlock block = {};
  block.count = count;
  double lit[kMediaBlock];
  block.boundary[0] = std::max(floor_, heightOf(segments[0].start));
  for (int i = 0; i < count; ++i) {
    block.boundary[i + 1] = std::max(floor_, heightOf(segments[i].end));
    lit[i] = heightOf(segments[i].jittered);
    block.lit[i] = std::max(floor_, lit[i]);
  }

  // Optical depths of the media and the ozone band, per channel.
  double bluesky[kMediaBlock + kLaneRoom], haze[kMediaBlock + kLaneRoom];
  const auto leastRise = [this](double scaleHeight) { return scaleHeight * derived_.invSamples * 0.1; };
  atmosphere::MeanDensities(
      block, {blueskyExpHeight_, derived_.invBlueskyHeight, leastRise(blueskyExpHeight_)}, bluesky);
  atmosphere::MeanDensities(block, {hazeExpHeight_, derived_.invHazeHeight, leastRise(hazeExpHeight_)}, haze);
  const double grey = std::clamp(hazeGreyFraction_, 0.0, 1.0);
  const trManRgb& decay = redskyDecayColour_;
  const double mean = (decay.r + decay.g) / 2.0;
  double tau[3 * kMediaBlock + kLaneRoom];
  for (int i = 0; i < count; ++i) {
    AtmosphereSegment& segment = segments[i];
    const double unit = segment.length * kPerMetre;
    const double blueskyAmount = bluesky[i] * blueskyDensity_ * unit,
                 hazeAmount = haze[i] * hazeDensity_ * unit;
    segment.blueskyExtinction = Bounded(data.blueskyDensityColour, blueskyAmount + hazeAmount * (1.0 - grey));
    segment.hazeExtinction = trFCol(Bounded(hazeAmount * grey));
    segment.opticalDepth = segment.blueskyExtinction + segment.hazeExtinction;
    if (ozoneFactor_ != 0) {
      const double profile = atmosphere::OzoneProfile(lit[i] * derived_.invBlueskyHeight * 8000.0);
      if (profile != 0) {
        // The band's colour is that of a red sky with red and green drawn half way together.
        const double scale = ozoneFactor_ * profile * blueskyAmount * 0.5;
        segment.opticalDepth +=
            trFCol(Bounded(scale * ((decay.r - mean) * 0.5 + mean)),
                   Bounded(scale * ((decay.g - mean) * 0.5 + mean)), Bounded(scale * decay.b));
      }
    }
    for (int c = 0; c < 3; ++c) tau[3 * i + c] = segment.opticalDepth[c];
  }

  std::fill_n(tau + 3 * count, kLaneRoom, 0.0);
  atmosphere::TakeOpacities(tau, 3 * count);
  for (int i = 0; i < count; ++i)
    segments[i].opacity = trFCol(static_cast<float>(tau[3 * i]), static_cast<float>(tau[3 * i + 1]),
                                 static_cast<float>(tau[3 * i + 2]));
}

double PlanetAtmosphere::LightLeft(trRenderState& state, const trVector& point) {
  PrepareDerived();
  if (!derived_.shadowFunction) return 1.0;
  trShadingInterface& si = state.Shading();
  const trShadingGuard guard(si);
  state.ResetShadeAttributesCOA();
  const trVector up = Normalised(point - centre_);
  si.SetSample(centre_ + up * radius_, up);
  si.Eye() = point;
  // Nothing hangs on what the state shaded before.
  si.SmoothSize() = state.MicropolySpotSize(si.P());
  si.SetWants(trShadingInterface::kCd);
  si.SetLightDepth(1);
  si.Object() = {};
  derived_.shadowFunction->ShadeTS(si);
  const double shade = 1.0 - Luminance(si.Cutil());
  return shade > 0.0 ? std::min(shade, 1.0) : 0.0;
}

void PlanetAtmosphere::AddLights(trRenderState& state, const trAtmosSample& sample,
                                 const AtmosphereRayData& data, AtmosphereSegment& segment,
                                 double stateQuality) {
  const bool isModulated = derived_.shadowFunction && state.CurrentRay().modulatesLight;
  const double shadow = isModulated ? LightLeft(state, segment.jittered) : 1.0;
  const trVector spot(segment.lightSpot, segment.lightSpot, segment.lightSpot);
  const trRenderState::Ray& ray = state.CurrentRay();
  for (int i = 0; i < data.lightCount; ++i) {
    const trLightState* light = data.lights[i];
    double dim = 1.0;
    if (fakeDarkPower_ > 0) {
      const double c = Dot(Normalised(segment.jittered - centre_), light->Dir(segment.jittered));
      dim = std::pow(std::max(0.0, 0.5 + 0.5 * c), fakeDarkPower_) * Logistic(c * fakeDarkSharpness_);
    }
    if (isModulated && (light->DoShadowsFromSurfaces() || light->DoShadowsFromAtmosphere())) dim *= shadow;

    trFCol colour;
    if (ray.optimisedLighting) {
      const trVector view = Normalised(segment.mid - ray.origin) * segment.length;
      const double visible = ray.pixelFactor * stateQuality;
      trFCol precision;
      for (int c = 0; c < 3; ++c) {
        const double seen = (sample.throughput[c] + 0.001) * visible;
        precision[c] =
            static_cast<float>((data.blueskyHorizon[c] * segment.blueskyExtinction[c] * data.blueskyPhase[i] +
                                data.hazeHorizon[c] * segment.hazeExtinction[c] * data.hazePhase[i]) *
                               4.0 * seen * seen * dim);
      }
      colour = light->DEV_IntensityOptimised(state, segment.jittered, spot, view, precision);
    } else {
      colour = light->Intensity(state, segment.jittered, spot);
    }
    segment.blueskyDirect += colour * static_cast<float>(dim * data.blueskyPhase[i]);
    segment.hazeDirect += colour * static_cast<float>(dim * data.hazePhase[i]);
  }
}

void PlanetAtmosphere::AddEnviro(trRenderState& state, int index, AtmosphereRayData& data,
                                 AtmosphereSegment& segment) {
  const trFCol enviro = enviroLightTint_.ToRender() * static_cast<float>(enviroLight_);
  if (enviro.IsBlack()) return;
  trVoxelLightingSystem* lighting =
      state.Shading().RenderContext() == trRenderContext::kProgressive && state.IsAProgressiveRenderer()
          ? state.VoxelLightingSystem()
          : nullptr;
  if (lighting) {
    if (!data.enviroValid || (data.enviroPhase256 + index) % 256 == 0) {
      data.enviroDirect = data.enviroHazeDirect =
          4.0f * enviro * ProgressiveEnviro(state, *lighting, segment.jittered);
      data.enviroValid = 1;
    }
  } else {
    if (!data.wantsEnviro) return;
    if (!data.enviroValid || (data.enviroPhase16 + index) % 16 == 0) {
      double radius = segment.enviroSpot * 16.0;
      if (betterCacheRadius_) {
        const double pixel = state.MicropolySpotSize(segment.jittered);
        radius = std::pow(std::max(0.0, GuardedDivide(radius, pixel)), 0.667) * pixel;
      }
      trFCol above, below;
      state.EnviroIlluminationInAtmosphereAniso(segment.jittered, {radius, radius, radius}, above, below);
      data.enviroDirect = enviro * below * (1.0f - derived_.blueskyAnisotropy) +
                          enviro * above * (1.0f + derived_.blueskyAnisotropy);
      data.enviroHazeDirect = enviro * below * (1.0f - derived_.hazeAnisotropy) +
                              enviro * above * (1.0f + derived_.hazeAnisotropy);
      data.enviroValid = 1;
    }
  }
  segment.blueskyEnviro += data.enviroDirect;
  segment.hazeEnviro += data.enviroHazeDirect;
}

trFCol PlanetAtmosphere::ProgressiveEnviro(trRenderState& state, trVoxelLightingSystem& lighting,
                                           const trVector& point) {
  if (state.CurrentRay().depth > lighting.DepthLimit()) return {};
  if (trVoxelLightingSystem::sIsDuringLookup()) return lighting.OneCachelessBackgroundSample(state, point);
  return lighting.LookupIsotropicBackgroundProgressive(enviroCache_, state, point);
}
