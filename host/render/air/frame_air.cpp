// Light in the air, from tables and marches together.
#include "host/render/air/frame_air.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Past everything, metres.
constexpr double kFar = 1e9;
/// What a diffuse bounce stands for of the sky, radians: glows of volumes round a sun aren't sharper.
constexpr double kBounceAngle = 0.3;
/// Air that reaches further isn't tabulated, metres.
constexpr double kFarthest = 1e12;

}  // namespace

void FrameAir::SetVolumes(std::vector<trAtmosShader*> volumes) {
  volumes_ = std::move(volumes);
  symmetric_.clear();
  marched_.clear();
  modulated_.clear();
  withMatter_.clear();
  withoutMatter_.clear();
  plainMarched_.clear();
  shell_ = {};
  for (trAtmosShader* volume : volumes_) {
    (volume->HasMatter() ? withMatter_ : withoutMatter_).push_back(volume);
    const trVolumeShape shape = volume->Shape();
    const bool isFirst = symmetric_.empty();
    if (!shape.isSymmetric || !(shape.outerRadius > shape.innerRadius) ||
        !(shape.outerRadius + shape.centre.Length() < kFarthest) ||
        (!isFirst && shape.centre != shell_.centre)) {
      marched_.push_back(volume);
      if (!volume->HasMatter()) plainMarched_.push_back(volume);
      continue;
    }
    symmetric_.push_back(volume);
    if (shape.hasModulatedLight) modulated_.push_back({volume, 0});
    shell_.centre = shape.centre;
    shell_.innerRadius = isFirst ? shape.innerRadius : std::fmin(shell_.innerRadius, shape.innerRadius);
    shell_.outerRadius = isFirst ? shape.outerRadius : std::fmax(shell_.outerRadius, shape.outerRadius);
  }
  marchedShells_ = AirShells(marched_);
}

void FrameAir::BuildTables(trRenderServices& services, const trVector& eye, bool hasSkyLight,
                           const SkyTables::GroundQuery& ground, const std::vector<trVector>& places) {
  if (symmetric_.empty()) return;
  tables_.BuildTransmittance(symmetric_, shell_, services);
  if (services.NumLights() < 1) return;
  if (hasSkyLight)
    tables_.BuildEnviro(symmetric_, services, services.Light(0)->Dir(), services.NumLights() > 1, ground);
  const bool isByPart = !modulated_.empty() || !marched_.empty();
  if (services.NumLights() == 1) {
    sun_ = services.Light(0);
    const std::vector<double> shares =
        bounceSky_.Build(symmetric_, services, shell_.centre, sun_->Dir(), eye, places, isByPart);
    unmodulated_ = 1;
    for (Modulated& modulated : modulated_) {
      const auto at = std::find(symmetric_.begin(), symmetric_.end(), modulated.volume) - symmetric_.begin();
      modulated.share = static_cast<size_t>(at) < shares.size() ? shares[static_cast<size_t>(at)] : 0;
      unmodulated_ -= modulated.share;
    }
  }
  if (isByPart && hasSkyLight) filter_.Init(symmetric_, marched_, shell_, eye, ground);
}

trFCol FrameAir::ThroughMarched(trRenderState& state, const std::vector<trAtmosShader*>& marched,
                                const trLightState& light, const trVector& point,
                                const trVector& spot) const {
  trFCol left(1.0f);
  if (marched.empty()) return left;
  const KeyedDraws draws(state, KeyOfPoint(point));
  for (trAtmosShader* volume : marched) {
    left *= volume->TransmittanceTowards(state, light, point, spot);
    if (left.IsBlack()) break;
  }
  return left;
}

trFCol FrameAir::TowardsSurface(trRenderState& state, const trLightState& light,
                                const trVector& point) const {
  if (marched_.empty()) return ThroughTables(light, point);
  const trRayGuard guard(state);
  state.CurrentRay() = trRenderState::Ray();
  return Towards(state, light, point, {});
}

trFCol FrameAir::Towards(trRenderState& state, const trLightState& light, const trVector& point,
                         const trVector& spot) const {
  const trFCol left = ThroughTables(light, point);
  if (marched_.empty() || !state.CurrentRay().modulatesLight || left.IsBlack()) return left;
  return left * ThroughMarched(state, marched_, light, point, spot);
}

trFCol FrameAir::PastMatter(trRenderState& state, const trLightState& light, const trVector& point) const {
  return ThroughTables(light, point) * ThroughMarched(state, plainMarched_, light, point, {});
}

void FrameAir::SkyLight(trRenderState& state, const trVector& point, bool isBlended, trFCol& above,
                        trFCol& below) const {
  tables_.Enviro(point, above, below);
  const trRenderState::Ray& ray = state.CurrentRay();
  if (!filter_.IsReady() || !ray.modulatesLight || (!ray.filtersSky && ray.depth > 2)) return;
  filter_.Apply(state, point, isBlended, above, below);
}

trFCol FrameAir::SunLeft(trRenderState& state, const trVector& point) const {
  if (!sun_->DoShadowsFromSurfaces() && !sun_->DoShadowsFromAtmosphere()) return trFCol(1.0f);
  double left = unmodulated_;
  for (const Modulated& modulated : modulated_)
    left += modulated.share * modulated.volume->LightLeft(state, point);
  return ThroughMarched(state, marched_, *sun_, point, {}) * static_cast<float>(left);
}

bool FrameAir::OpenSky(trRenderState& state, const trVector& origin, const trVector& direction, Sight sight,
                       trFCol& radiance) const {
  if (modulated_.empty() && marched_.empty()) return bounceSky_.Lookup(origin, direction, radiance);
  BounceSky::Light sky;
  if (!bounceSky_.Lookup(origin, direction, sky)) return false;
  const trRayGuard guard(state);
  AirRay ray;
  ray.origin = origin;
  ray.direction = direction;
  ray.distance = kFar;
  ray.depth = 2;
  ray.isSharp = false;
  ray.pixelAngle = kBounceAngle;
  if (sight == Sight::kBackground) {
    ray.depth = kDepthOfBackground;
    ray.filtersSky = ray.limitsEnviro = false;
  }
  PutInHand(state, ray);
  const KeyedDraws draws(state, KeyOfPoint(origin) + KeyOfPoint(direction));
  // Suns count by what is left of them at one point of the air that is seen, sky light by what there is of it
  // where the bounce begins.
  const double drawn = -sky.distance * std::log1p(-std::fmin(state.Random(), 1 - 1e-9));
  trFCol above, below, tableAbove, tableBelow;
  SkyLight(state, origin, false, above, below);
  tables_.Enviro(origin, tableAbove, tableBelow);
  radiance = sky.direct * SunLeft(state, origin + direction * drawn);
  for (int c = 0; c < 3; ++c) {
    const float table = tableAbove[c] + tableBelow[c];
    radiance[c] += sky.enviro[c] * (table > 0 ? (above[c] + below[c]) / table : 1.0f);
  }
  const std::vector<trAtmosShader*>& marched = sight == Sight::kPastMatter ? plainMarched_ : marched_;
  if (!marched.empty() && !marchedShells_.WayOf(origin, direction, kFar, 0).isClear)
    AddMarched(state, marched, ray, sky.distance, radiance);
  return true;
}

void FrameAir::AddMarched(trRenderState& state, const std::vector<trAtmosShader*>& volumes, const AirRay& ray,
                          double meanDistance, trFCol& radiance) const {
  const trIntegratorLoan integrator(state);
  const trAtomicIntegrator::Result marched = integrator->Integrate(state, volumes);
  double weights = 0, distances = 0;
  for (int i = 0; i < integrator->NumSamples(); ++i) {
    const trAtmosSample& sample = integrator->Sample(i);
    const double weight = Luminance(sample.throughput * sample.opacityDirect);
    weights += weight;
    distances += weight * sample.distance;
  }
  if (!(weights > 0)) return;
  // Air thins out, or hides itself, by about an exponential of the distance.
  const auto before = static_cast<float>(-std::expm1(-distances / (weights * std::fmax(meanDistance, 1))));
  const trFCol through = tables_.Transmittance(ray.origin, ray.direction, 0);
  const trFCol airBefore = trFCol(1.0f) - (trFCol(1.0f) - through) * before;
  radiance =
      radiance * (trFCol(before) + marched.transmittance * (1 - before)) + marched.Colour() * airBefore;
}

}  // namespace ovhost
