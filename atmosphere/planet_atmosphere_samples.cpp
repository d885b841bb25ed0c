// Evaluation of one stretch of a ray: how much of each medium lies in it, and what light it sends along the
// ray.
#include <cfloat>
#include <cmath>

#include "atmosphere/atmosphere_medium.h"
#include "atmosphere/planet_atmosphere.h"
#include "core/idioms.h"

namespace {

using atmosphere::kPerMetre;

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

/// Mean density over a stretch between two heights (metres above the radius) of a medium of scale height
/// `scale`.
double MeanDensity(double expStart, double expEnd, double scale, double rise) {
  return std::max(0.0, GuardedDivide((expStart - expEnd) * scale, rise));
}

/// An optical depth that arithmetic can go on with.
float Bounded(double depth) { return depth > 0.0 ? static_cast<float>(std::min(depth, 1e6)) : 0.0f; }

trFCol Bounded(const trFCol& c, double scale) {
  return {Bounded(c.r * scale), Bounded(c.g * scale), Bounded(c.b * scale)};
}

bool IsFinite(const trFCol& c) { return std::fabs(c.r) + std::fabs(c.g) + std::fabs(c.b) <= FLT_MAX; }

}  // namespace

/// Of one stretch: what each part takes away.
struct PlanetAtmosphere::Depths {
  trFCol bluesky, haze, tau, opacity;
};

long PlanetAtmosphere::EvaluateRaySample(trRenderState& state, trAtmosSample& sample) {
  sample.colourDirect = sample.colourEnviro = trFCol();
  sample.opacityDirect = sample.opacityEnviro = trFCol(1.0f);
  if (sample.index < 0) return 1;

  trRenderState::Ray& ray = state.CurrentRay();
  AtmosphereRayData& data = *static_cast<AtmosphereRayData*>(sample.rayData);
  AtmosphereSegment& segment = data.segments[sample.index];
  const Depths depths = OpticalDepths(data, sample.index);
  sample.opacityDirect = sample.opacityEnviro = depths.opacity;
  if (!ray.wantsColour) return 1;

  segment.blueskyExtinction = depths.bluesky;
  segment.hazeExtinction = depths.haze;
  segment.blueskyDirect = segment.blueskyEnviro = segment.hazeDirect = segment.hazeEnviro = trFCol();
  {
    const RayGuard guard(ray);
    ray.tracesShadows = ray.tracesShadows && enableRayTracedShadows_;
    // A sample that hardly shows isn't worth good light.
    const float contribution = (depths.opacity * sample.throughput).MaxChannel();
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
    const float scale = depths.tau[c] != 0.0f ? depths.opacity[c] / depths.tau[c] : depths.opacity[c];
    blueskyShare[c] = scale * depths.bluesky[c] * data.blueskyHorizon[c];
    hazeShare[c] = scale * depths.haze[c] * data.hazeHorizon[c];
  }
  const trFCol direct = blueskyShare * segment.blueskyDirect + hazeShare * segment.hazeDirect;
  const trFCol enviro = blueskyShare * segment.blueskyEnviro + hazeShare * segment.hazeEnviro;
  if (IsFinite(direct)) sample.colourDirect = direct;
  if (IsFinite(enviro)) sample.colourEnviro = enviro;
  return 1;
}

PlanetAtmosphere::Depths PlanetAtmosphere::OpticalDepths(AtmosphereRayData& data, int index) const {
  const AtmosphereSegment& segment = data.segments[index];
  const auto heightOf = [this](const trVector& p) { return (p - centre_).Length() - radius_; };

  // Samples are evaluated in order as a rule: this one's near boundary is the far one of the last.
  AtmosphereRayData::Boundary near = data.boundary;
  if (near.index != index - 1)
    near = {index - 1, std::max(floor_, heightOf(segment.start)), false, false, 0, 0};
  AtmosphereRayData::Boundary far{index, std::max(floor_, heightOf(segment.end)), false, false, 0, 0};
  const double lit = heightOf(segment.jittered);
  const double rise = far.height - near.height;
  const double level = std::fabs(rise) * 10.0;

  double bluesky, haze;
  if (level > blueskyExpHeight_ * derived_.invSamples) {
    if (!near.hasBluesky) near.blueskyExp = atmosphere::DensityExp(-near.height * derived_.invBlueskyHeight);
    far.blueskyExp = atmosphere::DensityExp(-far.height * derived_.invBlueskyHeight);
    far.hasBluesky = true;
    bluesky = MeanDensity(near.blueskyExp, far.blueskyExp, blueskyExpHeight_, rise);
  } else {
    bluesky = atmosphere::CoarseExp(-std::max(floor_, lit) * derived_.invBlueskyHeight);
  }
  if (level > hazeExpHeight_ * derived_.invSamples) {
    if (!near.hasHaze) near.hazeExp = atmosphere::DensityExp(-near.height * derived_.invHazeHeight);
    far.hazeExp = atmosphere::DensityExp(-far.height * derived_.invHazeHeight);
    far.hasHaze = true;
    haze = MeanDensity(near.hazeExp, far.hazeExp, hazeExpHeight_, rise);
  } else {
    haze = atmosphere::CoarseExp(-std::max(floor_, lit) * derived_.invHazeHeight);
  }
  data.boundary = far;

  Depths depths;
  const double grey = std::clamp(hazeGreyFraction_, 0.0, 1.0);
  const double unit = segment.length * kPerMetre;
  const double blueskyAmount = bluesky * blueskyDensity_ * unit, hazeAmount = haze * hazeDensity_ * unit;
  depths.bluesky = Bounded(data.blueskyDensityColour, blueskyAmount + hazeAmount * (1.0 - grey));
  depths.haze = trFCol(Bounded(hazeAmount * grey));
  depths.tau = depths.bluesky + depths.haze;

  if (ozoneFactor_ != 0) {
    const double profile = atmosphere::OzoneProfile(lit * derived_.invBlueskyHeight * 8000.0);
    if (profile != 0) {
      // The band's colour is that of a red sky with red and green drawn half way together.
      const trManRgb& c = redskyDecayColour_;
      const double mean = (c.r + c.g) / 2.0, scale = ozoneFactor_ * profile * blueskyAmount * 0.5;
      depths.tau += trFCol(Bounded(scale * ((c.r - mean) * 0.5 + mean)),
                           Bounded(scale * ((c.g - mean) * 0.5 + mean)), Bounded(scale * c.b));
    }
  }
  for (int c = 0; c < 3; ++c)
    depths.opacity[c] = static_cast<float>(1.0 - atmosphere::Transmit(depths.tau[c]));
  return depths;
}

double PlanetAtmosphere::ShadowFactor(trRenderState& state, const trVector& point) const {
  if (!derived_.shadowFunction) return 1.0;
  trShadingInterface& si = state.Shading();
  const trShadingGuard guard(si);
  state.ResetShadeAttributesCOA();
  const trVector up = Normalised(point - centre_);
  si.SetSample(centre_ + up * radius_, up);
  si.Eye() = point;
  derived_.shadowFunction->ShadeTS(si);
  const double shade = 1.0 - Luminance(si.Cutil());
  return shade > 0.0 ? std::min(shade, 1.0) : 0.0;
}

void PlanetAtmosphere::AddLights(trRenderState& state, const trAtmosSample& sample,
                                 const AtmosphereRayData& data, AtmosphereSegment& segment,
                                 double stateQuality) const {
  const double shadow = ShadowFactor(state, segment.jittered);
  const trVector spot(segment.lightSpot, segment.lightSpot, segment.lightSpot);
  const trRenderState::Ray& ray = state.CurrentRay();
  for (int i = 0; i < data.lightCount; ++i) {
    const trLightState* light = data.lights[i];
    double dim = 1.0;
    if (fakeDarkPower_ > 0) {
      const double c = Dot(Normalised(segment.jittered - centre_), light->Dir(segment.jittered));
      dim = std::pow(std::max(0.0, 0.5 + 0.5 * c), fakeDarkPower_) * Logistic(c * fakeDarkSharpness_);
    }
    if (derived_.shadowFunction && (light->DoShadowsFromSurfaces() || light->DoShadowsFromAtmosphere()))
      dim *= shadow;

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
