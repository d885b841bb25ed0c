// Paths from surface to surface.
#include "host/render/engine/light_walk.h"

#include <algorithm>
#include <limits>

#include "host/render/engine/path_constants.h"
#include "host/render/shade/depth_record.h"
#include "host/render/shade/footprint.h"

namespace ovhost {
namespace {

constexpr float kPi = 3.14159265f;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
/// What a medium leaves of light below which the path may end by chance.
constexpr float kDimmed = 0.25f;
/// Widest opening of a path that curved mirrors sent, radians.
constexpr double kWidestOpening = 0.1;
/// Events of scattering inside surfaces at most.
constexpr int kMostEventsInside = 64;

}  // namespace

LightWalk::LightWalk(LitScene& scene, const PathSettings& settings, MatterPaths* matter,
                     PathCounters& counters)
    : scene_(scene),
      settings_(settings),
      matter_(matter),
      counters_(counters),
      roulette_(settings, scene),
      shading_(scene, scene),
      pieces_(scene, shading_),
      shadows_(scene) {}

void LightWalk::Follow(const Start& start, const SurfacePoint& point, const trBsdf& bsdf,
                       const trFCol& opacity, CameraSample& result) {
  path_ = Path();
  path_.result = &result;
  path_.sampler = start.sampler;
  path_.random = start.random;
  path_.direction = start.direction;
  path_.throughput = start.throughput;
  path_.depth = start.depth;
  path_.diffuseBounces = start.diffuseBounces;
  const bool isDiffuse = start.diffuseBounces > 0;
  path_.kind = isDiffuse ? LightKind::kDiffuse : LightKind::kDirect;
  path_.spread = isDiffuse ? kDiffuseSpread : 0;
  path_.discPdf = isDiffuse ? -1 : kInfinity;
  path_.hasFilledLayers = isDiffuse;
  path_.isInside = path_.sunsCounted = start.isInside;
  path_.nodeId = start.hit->NodeId();
  path_.opening = kPixelFootprint * scene_.View().PixelAngularSize();
  path_.curvature = start.hit->Curvature();
  path_.castsShadows = start.castsShadows;
  path_.point = path_.entry = point;
  path_.footprint = point.footprint;
  if (!Scatter(bsdf, opacity)) return;
  while (Travel())
    if (!Scatter(shading_.si.Bsdf(), shading_.si.Oo_surf())) return;
}

// --- Adding up

void LightWalk::Add(const trFCol& light) {
  trFCol added = FiniteOrBlack(light);
  // Mirror images are as sharp as what they show; everything else is bounded.
  const float limit = settings_.clampIndirect, luminance = Luminance(added);
  if (limit > 0 && luminance > limit && path_.diffuseBounces + path_.eventsInside > 0)
    added *= limit / luminance;
  path_.result->indirect += added;
  path_.result->light.Of(path_.kind) += added;
}

void LightWalk::AddDirect(const LobeSet::Lit& lit, const trFCol& emission) {
  if (!IsDirect()) return Add(path_.throughput * (emission + lit.diffuse + lit.specular + lit.transmission));
  const auto add = [this](trFCol& layer, const trFCol& light) {
    const trFCol added = FiniteOrBlack(path_.throughput * light);
    layer += added;
    path_.result->direct += added;
  };
  add(path_.result->light.emission, emission);
  add(path_.result->light.diffuse, lit.diffuse);
  add(path_.result->light.specular, lit.specular);
  add(path_.result->light.transmission, lit.transmission);
}

void LightWalk::FillLayers() {
  if (path_.hasFilledLayers) return;
  path_.hasFilledLayers = true;
  path_.result->alpha = 1;
  FillSurfaceLayers(path_.point, path_.point.relative.Length(), lobes_.Albedo(), path_.nodeId, *path_.result);
}

// --- At a surface

bool LightWalk::Scatter(const trBsdf& bsdf, const trFCol& opacity) {
  // Part of the light passes beside the surface.
  const trFCol cover = CoverOf(opacity);
  if (cover != trFCol(1.0f)) {
    const trFCol open = trFCol(1.0f) - cover;
    const float chance = Brightness(open);
    if (path_.sampler.Next().x < chance) {
      path_.throughput *= open * (1 / chance);
      return ++path_.sheets <= kMostSheets && GoOn(path_.direction);
    }
    path_.throughput *= cover * (1 / (1 - chance));
  }

  path_.point.normal = TowardsFace(path_.point.normal, path_.point.face);
  lobes_.Make(bsdf, -path_.direction, path_.point.normal, path_.point.face);
  if (settings_.lights != PathSettings::Lights::kLobesOnly)
    lobes_.ShowSmallDiscs(path_.curvature * path_.point.footprint, path_.opening);
  FillLayers();
  LobeSet::Lit gathered;
  gathered.specular = lobes_.Gathered();
  AddDirect(gathered, PositivePart(bsdf.Emission()));

  const bool isBorder = !lobes_.SpecularColour(true).IsBlack();
  LobeSet::Allowed allowed;
  allowed.diffuse = path_.diffuseBounces < settings_.maxBounces && !scene_.SkyOnSurfaces().IsBlack();
  allowed.specular = path_.specularBounces < settings_.maxSpecularBounces;
  const bool goesOn = lobes_.Weigh(path_.throughput, allowed);
  LightByLobes(isBorder);
  LightByTables(allowed);
  return goesOn && Choose(isBorder);
}

void LightWalk::LightByLobes(bool isBorder) {
  const tr2Vector draw = path_.sampler.Next();
  // Inside, suns are met in straight lines through the border; at the border itself they are outside.
  const bool isThroughBorder = path_.isInside && !isBorder;
  const bool transmits = !path_.sunsCounted && (path_.depth == 1 || path_.castsShadows || path_.isInside);
  if (isThroughBorder) path_.sunsCounted = true;
  for (const auto& sun : scene_.Suns()) {
    const trVector direction = sun->SampleDisc(draw);
    double lightPdf = isThroughBorder ? kInfinity : sun->DiscPdf(direction);
    if (settings_.lights == PathSettings::Lights::kLightsOnly) lightPdf = kInfinity;
    if (settings_.lights == PathSettings::Lights::kLobesOnly) lightPdf = 0;
    LobeSet::Lit lit =
        lobes_.Evaluate(direction, lightPdf, sun->AngularRadiusInRadians(path_.point.world), transmits);
    const bool isOutward = Dot(direction, path_.point.face) > 0;
    // The way back into a solid whose border this is leads to the border again.
    if (path_.isInside && isBorder && isOutward) lit.specular = trFCol();
    if (lit.IsBlack()) continue;
    const trVector origin = path_.point.relative +
                            path_.point.face * (isOutward ? path_.point.rayOffset : -path_.point.rayOffset);
    trFCol light = sun->Radiance() * kPi;
    if (sun->DoShadowsFromSurfaces())
      light *= isThroughBorder
                   ? ThroughBorder(origin, direction, path_.point.rayOffset)
                   : shadows_.Transmittance(origin, direction, path_.point.rayOffset, counters_.shadowRays);
    if (light.IsBlack()) continue;
    shading_.state.CurrentRay().depth = 1;
    light *= FollowsMatter() ? matter_->ThroughVolumes(shading_.state, *sun, path_.point.world)
                             : sun->ThroughVolumes(shading_.state, path_.point.world);
    AddDirect({lit.diffuse * light, lit.specular * light, lit.transmission * light}, {});
  }
}

void LightWalk::LightByTables(const LobeSet::Allowed& allowed) {
  // What bounces past the last ones would bring, from the tabulated sky; not where the camera looks itself.
  trFCol light;
  const auto sky = [this](const trVector& direction) {
    return scene_.IndirectDiffuse(shading_.state, path_.point.world, direction) * kDeepVisibility;
  };
  if (!allowed.diffuse && path_.depth > 1 && !lobes_.Diffuse().IsBlack())
    light += lobes_.Diffuse() * sky(path_.point.normal);
  if (!allowed.specular) {
    const trFCol reflected = lobes_.SpecularColour(false), transmitted = lobes_.SpecularColour(true);
    const trVector& n = path_.point.normal;
    if (!reflected.IsBlack() && !path_.isInside)
      light += reflected * sky(path_.direction - n * (2 * Dot(path_.direction, n)));
    if (!transmitted.IsBlack()) light += transmitted * sky(path_.direction);
  }
  if (!light.IsBlack()) Add(path_.throughput * light);
}

bool LightWalk::Choose(bool isBorder) {
  const tr2Vector choice = path_.sampler.Next(), draw = path_.sampler.Next();
  LobeSet::Sampled sampled;
  if (!lobes_.Sample(choice.x, draw, sampled)) return false;
  path_.throughput *= sampled.weight;
  if (IsDirect()) path_.kind = sampled.kind;
  if (sampled.isStraight) {
    // The way before goes on, with all that was known of it.
    return ++path_.sheets <= kMostSheets && GoOn(path_.direction);
  }
  if (sampled.kind == LightKind::kDiffuse) {
    if (++path_.diffuseBounces == 1) path_.throughput *= scene_.SkyOnSurfaces();
    path_.spread = kDiffuseSpread;
    path_.discPdf = -1;
  } else {
    ++path_.specularBounces;
    path_.spread = std::max(path_.spread, kSpreadOfRoughness * std::min(sampled.roughness, 1.0f));
    // Curved mirrors open the cone of a sample (Igehy, Tracing Ray Differentials, 1999).
    const double turn = sampled.isStraight ? 0 : path_.curvature * path_.point.footprint;
    path_.opening =
        std::min(path_.opening + (sampled.kind == LightKind::kSpecular ? 2 : 1) * turn, kWidestOpening);
    path_.discPdf = sampled.pdf > 0 ? sampled.pdf : kInfinity;
    path_.discGain = sampled.lightGain;
    path_.shownDiscs = sampled.shownDiscs;
    if (settings_.lights != PathSettings::Lights::kBoth && sampled.pdf > 0)
      path_.discPdf = settings_.lights == PathSettings::Lights::kLobesOnly ? kInfinity : -1;
    if (path_.sunsCounted || (path_.isInside && !isBorder)) path_.discPdf = -1;
    if (sampled.isAcross && path_.depth > 1 && !path_.isInside && !path_.castsShadows) path_.discPdf = -1;
    if (sampled.isAcross || sampled.medium) {
      path_.isInside = sampled.medium != nullptr;
      if (path_.isInside) path_.medium = PathMedium(*sampled.medium);
      if (!path_.isInside) path_.sunsCounted = false;
    }
    if (sampled.isAcross) path_.entry = path_.point;
  }
  return Survives() && GoOn(sampled.direction);
}

bool LightWalk::Survives() {
  const float carried = path_.throughput.MaxChannel();
  if (!(carried > 0) || !std::isfinite(carried)) return false;
  const double survive = roulette_.Chance(path_.depth, path_.throughput, path_.result->light.Sum());
  if (survive < 1 && path_.sampler.Next().x >= survive) return false;
  path_.throughput *= static_cast<float>(1 / survive);
  return true;
}

bool LightWalk::GoOn(const trVector& direction) {
  const double side = Dot(direction, path_.point.face) > 0 ? path_.point.rayOffset : -path_.point.rayOffset;
  path_.origin = path_.point.relative + path_.point.face * side;
  path_.direction = direction;
  path_.nearest = path_.point.rayOffset;
  path_.footprint = path_.point.footprint;
  return true;
}

// --- To the next surface

bool LightWalk::Travel() {
  for (;;) {
    // To what is met.
    SurfaceHit hit;
    ++counters_.bounceRays;
    const bool isHit =
        scene_.Rays().Intersect(path_.origin, path_.direction, path_.nearest, scene_.FarDistance(), hit,
                                IsDirect() ? kCameraRays : kIndirectRays);
    const double distance = isHit ? hit.distance : scene_.FarDistance();

    // Through what lies between: a solid's inside, or the air.
    if (path_.isInside) {
      trFCol weight;
      const double reached =
          path_.medium.SampleDistance(distance, path_.throughput, path_.sampler.Next(), weight);
      path_.throughput *= weight;
      if (reached < distance) {
        if (!ScatterInside(reached)) return false;
        continue;
      }
      // Deep water leaves little.
      if (weight.MaxChannel() < kDimmed && !Survives()) return false;
    } else if (AddTabulatedSky(isHit)) {
      return false;
    } else if (!Air(distance)) {
      return false;
    }

    // The end of the path, or a surface.
    if (!isHit) {
      AddBackground();
      return false;
    }
    if (IsDirect() && hit.IsHoldout()) {
      if (!path_.hasFilledLayers) path_.result->alpha = 1 - Brightness(path_.throughput);
      return false;
    }
    if (!(path_.throughput.MaxChannel() > 0)) return false;
    ++path_.depth;
    ShadeHit(hit);
    return true;
  }
}

bool LightWalk::AddTabulatedSky(bool isHit) {
  trFCol sky;
  if (isHit || path_.spread < kDiffuseSpread || path_.discPdf >= 0 ||
      !scene_.Air().OpenSky(shading_.state, path_.origin + scene_.View().eye, path_.direction,
                            FrameAir::Sight::kBounce, sky))
    return false;
  Add(path_.throughput * sky);
  return true;
}

bool LightWalk::Air(double distance) {
  if (scene_.Volumes().empty()) return true;
  // Mirrors see the air as sharp as the eye does, and volumes drop light by depth.
  const int depth = IsDirect() ? 1 : 2 + std::max(path_.diffuseBounces - 1, 0);
  const bool isSharp = std::max(path_.spread, path_.opening) < kBlurredSpread;
  shading_.si.Random() = {MixBits64(path_.random + 0x100 + path_.depth + path_.sheets)};
  const bool followsMatter = FollowsMatter();
  const bool tellsDepth = path_.result->steps && !path_.hasFilledLayers;
  const trVector from = path_.origin + scene_.View().eye;
  const trFCol arriving = path_.throughput;
  Matter::Collision collision;
  const bool isScattered = followsMatter && matter_->Collide(shading_.state, from, path_.direction, distance,
                                                             path_.throughput, collision);
  if (isScattered) distance = collision.distance;
  const trAtomicIntegrator::Result air = scene_.AirAlong(
      shading_.state, followsMatter ? scene_.Air().WithoutMatter() : scene_.Volumes(), from, path_.direction,
      distance, depth, isSharp, counters_.volumeSamples, tellsDepth ? &airRecord_ : nullptr);
  trFCol light = arriving * air.Colour();
  path_.throughput *= air.transmittance;
  const double start = path_.origin.Length();
  if (tellsDepth) AddVolumesBehind(airRecord_.Steps(), air.transmittance, start, arriving, *path_.result);
  if (isScattered) {
    const trFCol scattered = matter_->Light(shading_.state, collision, path_.direction, path_.throughput);
    light += scattered;
    if (!path_.hasFilledLayers) path_.result->alpha = 1;
    if (tellsDepth)
      AddScattering(start + collision.distance, collision.distance * scene_.View().PixelAngularSize(),
                    FiniteOrBlack(scattered), path_.throughput, *path_.result);
  }
  if (IsDirect()) {
    light = FiniteOrBlack(light);
    path_.result->atmosphere += light;
    path_.result->light.sky += light;
  } else {
    Add(light);
  }
  return !isScattered;
}

void LightWalk::AddBackground() {
  if (!path_.hasFilledLayers) path_.result->alpha = 1 - Brightness(path_.throughput);
  if (path_.discPdf < 0) return;
  for (const auto& sun : scene_.Suns()) {
    if (!sun->IsInDisc(path_.direction) || (IsDirect() && !sun->HasVisibleDisc())) continue;
    if (sun->AngularRadiusInRadians(path_.origin) < path_.shownDiscs) continue;
    const double weight =
        std::isinf(path_.discPdf) ? 1.0 : PowerHeuristic(path_.discPdf, sun->DiscPdf(path_.direction));
    const trFCol light = path_.throughput * sun->Radiance() *
                         static_cast<float>(sun->DiscBrightness(path_.direction) * weight * path_.discGain);
    if (IsDirect())
      path_.result->light.sky += FiniteOrBlack(light);
    else
      Add(light);
  }
}

void LightWalk::ShadeHit(const SurfaceHit& hit) {
  shading_.hits.Locate(hit, path_.origin, path_.direction, 0, path_.point);
  path_.point.footprint =
      path_.footprint + hit.distance * std::max(path_.spread * kFootprintOfSpread, path_.opening);
  path_.nodeId = hit.NodeId();
  path_.curvature = hit.Curvature();
  trRenderState::Ray& ray = shading_.state.CurrentRay();
  ray = trRenderState::Ray();
  ray.origin = path_.origin + scene_.View().eye;
  ray.end = path_.point.world;
  ray.pixelAngularSize = scene_.View().PixelAngularSize();
  if (const ShadeCache::Entry* shared =
          pieces_.Find(hit, path_.point, path_.direction, PieceShading::Sight::kCone)) {
    trBsdf& bsdf = shading_.si.Bsdf();
    bsdf.Clear();
    bsdf.Emission() = shared->emission;
    bsdf.AddLambert(shared->diffuse);
    shading_.si.Oo_surf() = trFCol(1.0f);
    path_.castsShadows = hit.part->scene->CastsShadows();
    return;
  }
  ray.depth = path_.depth;
  ray.highlights = false;
  ray.spread = path_.spread;
  ray.importance = std::min(path_.throughput.MaxChannel(), 1.0f);
  shading_.si.Random() = {MixBits64(path_.random + path_.depth + path_.sheets)};
  shading_.Shade(hit, path_.origin, path_.point);
  path_.castsShadows = ray.groupCastsShadows;
  path_.point.normal = Normalised(shading_.si.N());
}

// --- Inside a surface

bool LightWalk::ScatterInside(double distance) {
  // A point beneath the border by which the path came in.
  if (++path_.eventsInside > kMostEventsInside) return false;
  const trVector at = path_.origin + path_.direction * distance;
  const trVector outward = path_.entry.face;
  path_.point = path_.entry;
  path_.point.relative = at;
  path_.point.world = at + scene_.View().eye;
  path_.point.footprint = path_.footprint + distance * path_.spread * kFootprintOfSpread;
  path_.point.rayOffset = RayOffset(at);

  // Methods for which a surface stands there.
  const trFCol albedo = path_.medium.Albedo(ColourInside());
  switch (path_.medium.Method()) {
    case MediumMethod::kHardSurface:
      return ScatterAsSurface(path_.entry, DeepReflectance(albedo));
    case MediumMethod::kTowardsNormal: {
      // Light comes straight down from the border above.
      SurfaceHit hit;
      ++counters_.bounceRays;
      if (!scene_.Rays().Intersect(at, outward, 0, scene_.FarDistance(), hit, kIndirectRays) ||
          hit.part != path_.entry.part)
        return false;
      SurfacePoint above = path_.entry;
      shading_.hits.Locate(hit, at, outward, 0, above);
      above.face = -above.face;
      above.footprint = path_.point.footprint;
      const trFCol down = shadows_.AcrossBorder(hit, at, outward) * path_.medium.Transmittance(hit.distance);
      return ScatterAsSurface(above, DeepReflectance(albedo) * down * kStraightUp);
    }
    case MediumMethod::kAllDirections:
      break;
  }

  // Suns at the point, and on in any direction.
  path_.throughput *= albedo;
  path_.spread = kDiffuseSpread;
  path_.discPdf = -1;
  LightInside(albedo);
  path_.sunsCounted = true;
  if (!Survives()) return false;
  path_.origin = at;
  path_.direction = SphereDirection(path_.sampler.Next());
  path_.nearest = 0;
  path_.footprint = path_.point.footprint;
  return true;
}

bool LightWalk::ScatterAsSurface(const SurfacePoint& point, const trFCol& colour) {
  path_.point = point;
  if (Dot(path_.point.normal, path_.point.face) < 0) path_.point.normal = -path_.point.normal;
  path_.isInside = path_.sunsCounted = false;
  path_.direction = -path_.point.face;
  trBsdf deep;
  deep.AddLambert(colour);
  return Scatter(deep, trFCol(1.0f));
}

void LightWalk::LightInside(const trFCol& albedo) {
  const tr2Vector draw = path_.sampler.Next();
  for (const auto& sun : scene_.Suns()) {
    const trVector direction = sun->SampleDisc(draw);
    // An even phase function: a quarter of what a white surface that faces the sun sends back.
    trFCol light = sun->Radiance() * 0.25f;
    if (sun->DoShadowsFromSurfaces()) light *= ThroughBorder(path_.point.relative, direction, 0);
    if (light.IsBlack()) continue;
    shading_.state.CurrentRay().depth = 1;
    Add(path_.throughput * light * sun->ThroughVolumes(shading_.state, path_.point.world));
  }
}

trFCol LightWalk::ColourInside() {
  const trMedium& medium = path_.medium.Source();
  if (!medium.volumeColourFunction) return FiniteOrBlack(medium.volumeColour);
  const trVector at = path_.point.world;
  return FiniteOrBlack(medium.volumeColour *
                       shading_.state.CallShaderCd(medium.volumeColourFunction, true, &at, nullptr));
}

trFCol LightWalk::ThroughBorder(const trVector& origin, const trVector& direction, double nearest) {
  return shadows_.ThroughBorder(
      path_.entry.part, origin, direction, nearest, counters_.shadowRays, trFCol(1.0f),
      [this](const SurfaceHit& hit) { return path_.medium.TransmittanceOfLight(hit.distance); });
}

}  // namespace ovhost
