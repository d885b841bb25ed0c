// Paths from surface to surface.
#include "host/render/engine/light_walk.h"

#include <algorithm>
#include <limits>

#include "host/render/shade/footprint.h"

namespace ovhost {
namespace {

constexpr float kPi = 3.14159265f;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
/// What a rough lobe adds to the cone, as a share of its roughness.
constexpr double kSpreadOfRoughness = 0.5;
/// Footprint of a cone, as a share of its angle: detail finer than this averages out.
constexpr double kFootprintOfSpread = 0.2;
/// Cones wider than this see blurred air: few samples do.
constexpr double kBlurredSpread = 0.05;
/// What a medium leaves of light below which the path may end by chance.
constexpr float kDimmed = 0.25f;
/// Widest opening of a path that curved mirrors sent, radians.
constexpr double kWidestOpening = 0.1;
/// Clear sheets that a path goes through at most, and events of scattering inside surfaces.
constexpr int kMostSheets = 64, kMostEventsInside = 64;
/// Share of the open sky taken to be seen from the end of a path: the tabulated light knows no terrain.
constexpr float kDeepVisibility = 0.7f;

}  // namespace

LightWalk::LightWalk(LitScene& scene, const PathSettings& settings, PathCounters& counters)
    : scene_(scene),
      settings_(settings),
      counters_(counters),
      roulette_(settings, scene),
      shading_(scene, scene),
      pieces_(scene, shading_),
      shadows_(scene) {}

void LightWalk::Follow(const Start& start, const SurfacePoint& point, const trBsdf& bsdf,
                       const trFCol& opacity, CameraSample& result) {
  result_ = &result;
  sampler_ = start.sampler;
  random_ = start.random;
  direction_ = start.direction;
  throughput_ = start.throughput;
  depth_ = start.depth;
  diffuseBounces_ = start.diffuseBounces;
  specularBounces_ = sheets_ = eventsInside_ = 0;
  kind_ = diffuseBounces_ > 0 ? LightKind::kDiffuse : LightKind::kDirect;
  spread_ = diffuseBounces_ > 0 ? kDiffuseSpread : 0;
  discPdf_ = diffuseBounces_ > 0 ? -1 : kInfinity;
  shownDiscs_ = 0;
  discGain_ = 1;
  isNoted_ = diffuseBounces_ > 0;
  isInside_ = sunsCounted_ = start.isInside;
  medium_ = PathMedium();
  nodeId_ = start.hit->NodeId();
  opening_ = kPixelFootprint * scene_.View().PixelAngularSize();
  curvature_ = start.hit->Curvature();
  castsShadows_ = start.castsShadows;
  point_ = entry_ = point;
  footprint_ = point.footprint;
  if (!Scatter(bsdf, opacity)) return;
  while (Travel())
    if (!Scatter(shading_.si.Bsdf(), shading_.si.Oo_surf())) return;
}

// --- Adding up
// -------------------------------------------------------------------------------------------------------

void LightWalk::Add(const trFCol& light) {
  trFCol added = FiniteOrBlack(light);
  // Mirror images are as sharp as what they show; everything else is bounded.
  const float limit = settings_.clampIndirect, luminance = Luminance(added);
  if (limit > 0 && luminance > limit && diffuseBounces_ + eventsInside_ > 0) added *= limit / luminance;
  result_->indirect += added;
  result_->light.Of(kind_) += added;
}

void LightWalk::AddDirect(const LobeSet::Lit& lit, const trFCol& emission) {
  if (!IsDirect()) return Add(throughput_ * (emission + lit.diffuse + lit.specular + lit.transmission));
  const auto add = [this](trFCol& layer, const trFCol& light) {
    const trFCol added = FiniteOrBlack(throughput_ * light);
    layer += added;
    result_->direct += added;
  };
  add(result_->light.emission, emission);
  add(result_->light.diffuse, lit.diffuse);
  add(result_->light.specular, lit.specular);
  add(result_->light.transmission, lit.transmission);
}

void LightWalk::Note() {
  if (isNoted_) return;
  isNoted_ = true;
  result_->alpha = 1;
  result_->depth = static_cast<float>(point_.relative.Length());
  result_->position = point_.world;
  result_->normal = point_.normal;
  result_->albedo = lobes_.Albedo();
  result_->nodeId = static_cast<float>(nodeId_);
}

// --- At a surface
// ----------------------------------------------------------------------------------------------------

bool LightWalk::Scatter(const trBsdf& bsdf, const trFCol& opacity) {
  // Part of the light passes beside the surface.
  trFCol cover;
  for (int c = 0; c < 3; ++c) cover[c] = opacity[c] > 0 ? std::min(opacity[c], 1.0f) : 0.0f;
  if (cover != trFCol(1.0f)) {
    const trFCol open = trFCol(1.0f) - cover;
    const float chance = Brightness(open);
    if (sampler_.Next().x < chance) {
      throughput_ *= open * (1 / chance);
      return ++sheets_ <= kMostSheets && GoOn(direction_);
    }
    throughput_ *= cover * (1 / (1 - chance));
  }

  trVector normal = point_.normal;
  if (!(normal.LengthSquared() > 0.5)) normal = point_.face;
  point_.normal = Dot(normal, point_.face) < 0 ? -normal : normal;
  lobes_.Make(bsdf, -direction_, point_.normal, point_.face);
  if (settings_.lights != PathSettings::Lights::kLobesOnly)
    lobes_.ShowSmallDiscs(curvature_ * point_.footprint, opening_);
  Note();
  LobeSet::Lit gathered;
  gathered.specular = lobes_.Gathered();
  AddDirect(gathered, PositivePart(bsdf.Emission()));

  const bool isBorder = !lobes_.SpecularColour(true).IsBlack();
  LobeSet::Allowed allowed;
  allowed.diffuse = diffuseBounces_ < settings_.maxBounces && !scene_.SkyOnSurfaces().IsBlack();
  allowed.specular = specularBounces_ < settings_.maxSpecularBounces;
  const bool goesOn = lobes_.Weigh(throughput_, allowed);
  LightByLobes(isBorder);
  LightByTables(allowed);
  return goesOn && Choose(isBorder);
}

void LightWalk::LightByLobes(bool isBorder) {
  const tr2Vector draw = sampler_.Next();
  // Inside, suns are met in straight lines through the border; at the border itself they are outside.
  const bool isThroughBorder = isInside_ && !isBorder;
  const bool transmits = !sunsCounted_ && (depth_ == 1 || castsShadows_ || isInside_);
  if (isThroughBorder) sunsCounted_ = true;
  for (const auto& sun : scene_.Suns()) {
    const trVector direction = sun->SampleDisc(draw);
    double lightPdf = isThroughBorder ? kInfinity : sun->DiscPdf(direction);
    if (settings_.lights == PathSettings::Lights::kLightsOnly) lightPdf = kInfinity;
    if (settings_.lights == PathSettings::Lights::kLobesOnly) lightPdf = 0;
    LobeSet::Lit lit =
        lobes_.Evaluate(direction, lightPdf, sun->AngularRadiusInRadians(point_.world), transmits);
    const bool isOutward = Dot(direction, point_.face) > 0;
    // The way back into a solid whose border this is leads to the border again.
    if (isInside_ && isBorder && isOutward) lit.specular = trFCol();
    if (lit.IsBlack()) continue;
    const trVector origin =
        point_.relative + point_.face * (isOutward ? point_.rayOffset : -point_.rayOffset);
    trFCol light = sun->Radiance() * kPi;
    if (sun->DoShadowsFromSurfaces())
      light *= isThroughBorder
                   ? ThroughBorder(origin, direction, point_.rayOffset)
                   : shadows_.Transmittance(origin, direction, point_.rayOffset, counters_.shadowRays);
    if (light.IsBlack()) continue;
    shading_.state.CurrentRay().depth = 1;
    light *= sun->ThroughVolumes(shading_.state, point_.world);
    AddDirect({lit.diffuse * light, lit.specular * light, lit.transmission * light}, {});
  }
}

void LightWalk::LightByTables(const LobeSet::Allowed& allowed) {
  // What bounces past the last ones would bring, from the tabulated sky; not where the camera looks itself.
  trFCol light;
  const auto sky = [this](const trVector& direction) {
    return scene_.IndirectDiffuse(shading_.state, point_.world, direction) * kDeepVisibility;
  };
  if (!allowed.diffuse && depth_ > 1 && !lobes_.Diffuse().IsBlack())
    light += lobes_.Diffuse() * sky(point_.normal);
  if (!allowed.specular) {
    const trFCol reflected = lobes_.SpecularColour(false), transmitted = lobes_.SpecularColour(true);
    const trVector& n = point_.normal;
    if (!reflected.IsBlack() && !isInside_)
      light += reflected * sky(direction_ - n * (2 * Dot(direction_, n)));
    if (!transmitted.IsBlack()) light += transmitted * sky(direction_);
  }
  if (!light.IsBlack()) Add(throughput_ * light);
}

bool LightWalk::Choose(bool isBorder) {
  const tr2Vector choice = sampler_.Next(), draw = sampler_.Next();
  LobeSet::Sampled sampled;
  if (!lobes_.Sample(choice.x, draw, sampled)) return false;
  throughput_ *= sampled.weight;
  if (IsDirect()) kind_ = sampled.kind;
  if (sampled.isStraight) {
    // The way before goes on, with all that was known of it.
    return ++sheets_ <= kMostSheets && GoOn(direction_);
  }
  if (sampled.kind == LightKind::kDiffuse) {
    if (++diffuseBounces_ == 1) throughput_ *= scene_.SkyOnSurfaces();
    spread_ = kDiffuseSpread;
    discPdf_ = -1;
  } else {
    ++specularBounces_;
    spread_ = std::max(spread_, kSpreadOfRoughness * std::min(sampled.roughness, 1.0f));
    // Curved mirrors open the cone of a sample (Igehy, Tracing Ray Differentials, 1999).
    const double turn = sampled.isStraight ? 0 : curvature_ * point_.footprint;
    opening_ = std::min(opening_ + (sampled.kind == LightKind::kSpecular ? 2 : 1) * turn, kWidestOpening);
    discPdf_ = sampled.pdf > 0 ? sampled.pdf : kInfinity;
    discGain_ = sampled.lightGain;
    shownDiscs_ = sampled.shownDiscs;
    if (settings_.lights != PathSettings::Lights::kBoth && sampled.pdf > 0)
      discPdf_ = settings_.lights == PathSettings::Lights::kLobesOnly ? kInfinity : -1;
    if (sunsCounted_ || (isInside_ && !isBorder)) discPdf_ = -1;
    if (sampled.isAcross && depth_ > 1 && !isInside_ && !castsShadows_) discPdf_ = -1;
    if (sampled.isAcross || sampled.medium) {
      isInside_ = sampled.medium != nullptr;
      if (isInside_) medium_ = PathMedium(*sampled.medium);
      if (!isInside_) sunsCounted_ = false;
    }
    if (sampled.isAcross) entry_ = point_;
  }
  return Survives() && GoOn(sampled.direction);
}

bool LightWalk::Survives() {
  const float carried = throughput_.MaxChannel();
  if (!(carried > 0) || !std::isfinite(carried)) return false;
  const double survive = roulette_.Chance(depth_, throughput_, result_->light.Sum());
  if (survive < 1 && sampler_.Next().x >= survive) return false;
  throughput_ *= static_cast<float>(1 / survive);
  return true;
}

bool LightWalk::GoOn(const trVector& direction) {
  const double side = Dot(direction, point_.face) > 0 ? point_.rayOffset : -point_.rayOffset;
  origin_ = point_.relative + point_.face * side;
  direction_ = direction;
  nearest_ = point_.rayOffset;
  footprint_ = point_.footprint;
  return true;
}

// --- To the next surface
// ---------------------------------------------------------------------------------------------

bool LightWalk::Travel() {
  for (;;) {
    SurfaceHit hit;
    ++counters_.bounceRays;
    const bool isHit = scene_.Rays().Intersect(origin_, direction_, nearest_, scene_.FarDistance(), hit,
                                               IsDirect() ? kCameraRays : kIndirectRays);
    const double distance = isHit ? hit.distance : scene_.FarDistance();
    if (isInside_) {
      trFCol weight;
      const double reached = medium_.SampleDistance(distance, throughput_, sampler_.Next(), weight);
      throughput_ *= weight;
      if (reached < distance) {
        if (!ScatterInside(reached)) return false;
        continue;
      }
      // Deep water leaves little.
      if (weight.MaxChannel() < kDimmed && !Survives()) return false;
    } else if (!AddTabulatedSky(isHit)) {
      throughput_ *= Air(distance);
    } else {
      return false;
    }
    if (!isHit) {
      AddBackground();
      return false;
    }
    if (IsDirect() && hit.IsHoldout()) {
      if (!isNoted_) result_->alpha = 1 - Brightness(throughput_);
      return false;
    }
    if (!(throughput_.MaxChannel() > 0)) return false;
    ++depth_;
    ShadeHit(hit);
    return true;
  }
}

bool LightWalk::AddTabulatedSky(bool isHit) {
  trFCol sky;
  if (isHit || spread_ < kDiffuseSpread || discPdf_ >= 0 ||
      !scene_.SkyOfBounces().Lookup(origin_ + scene_.View().eye, direction_, sky))
    return false;
  Add(throughput_ * sky);
  return true;
}

trFCol LightWalk::Air(double distance) {
  if (scene_.Volumes().empty()) return trFCol(1.0f);
  // Mirrors see the air as sharp as the eye does, and volumes drop light by depth.
  const int depth = IsDirect() ? 1 : 2 + std::max(diffuseBounces_ - 1, 0);
  const bool isSharp = std::max(spread_, opening_) < kBlurredSpread;
  shading_.si.Random() = {MixBits64(random_ + 0x100 + depth_ + sheets_)};
  const trAtomicIntegrator::Result air =
      scene_.AirAlong(shading_.state, origin_ + scene_.View().eye, direction_, distance, depth, isSharp,
                      counters_.volumeSamples);
  if (IsDirect()) {
    const trFCol light = FiniteOrBlack(throughput_ * air.Colour());
    result_->atmosphere += light;
    result_->light.sky += light;
  } else {
    Add(throughput_ * air.Colour());
  }
  return air.transmittance;
}

void LightWalk::AddBackground() {
  if (!isNoted_) result_->alpha = 1 - Brightness(throughput_);
  if (discPdf_ < 0) return;
  for (const auto& sun : scene_.Suns()) {
    if (!sun->IsInDisc(direction_) || (IsDirect() && !sun->HasVisibleDisc())) continue;
    if (sun->AngularRadiusInRadians(origin_) < shownDiscs_) continue;
    const double weight = std::isinf(discPdf_) ? 1.0 : PowerHeuristic(discPdf_, sun->DiscPdf(direction_));
    const trFCol light = throughput_ * sun->Radiance() *
                         static_cast<float>(sun->DiscBrightness(direction_) * weight * discGain_);
    if (IsDirect())
      result_->light.sky += FiniteOrBlack(light);
    else
      Add(light);
  }
}

void LightWalk::ShadeHit(const SurfaceHit& hit) {
  shading_.hits.Locate(hit, origin_, direction_, 0, point_);
  point_.footprint = footprint_ + hit.distance * std::max(spread_ * kFootprintOfSpread, opening_);
  nodeId_ = hit.NodeId();
  curvature_ = hit.Curvature();
  trRenderState::Ray& ray = shading_.state.CurrentRay();
  ray = trRenderState::Ray();
  ray.origin = origin_ + scene_.View().eye;
  ray.end = point_.world;
  ray.pixelAngularSize = scene_.View().PixelAngularSize();
  if (const ShadeCache::Entry* shared = pieces_.Find(hit, point_, direction_, PieceShading::Sight::kCone)) {
    trBsdf& bsdf = shading_.si.Bsdf();
    bsdf.Clear();
    bsdf.Emission() = shared->emission;
    bsdf.AddLambert(shared->diffuse);
    shading_.si.Oo_surf() = trFCol(1.0f);
    castsShadows_ = hit.part->scene->CastsShadows();
    return;
  }
  ray.depth = depth_;
  ray.highlights = false;
  ray.spread = spread_;
  ray.importance = std::min(throughput_.MaxChannel(), 1.0f);
  shading_.si.Random() = {MixBits64(random_ + depth_ + sheets_)};
  shading_.Shade(hit, origin_, point_);
  castsShadows_ = ray.groupCastsShadows;
  point_.normal = Normalised(shading_.si.N());
}

// --- Inside a surface
// ------------------------------------------------------------------------------------------------

bool LightWalk::ScatterInside(double distance) {
  if (++eventsInside_ > kMostEventsInside) return false;
  const trVector at = origin_ + direction_ * distance;
  const trVector outward = entry_.face;
  point_ = entry_;
  point_.relative = at;
  point_.world = at + scene_.View().eye;
  point_.footprint = footprint_ + distance * spread_ * kFootprintOfSpread;
  point_.rayOffset = 1e-4 + 4e-7 * (std::fabs(at.x) + std::fabs(at.y) + std::fabs(at.z));
  const trFCol albedo = medium_.Albedo(ColourInside());
  switch (medium_.Method()) {
    case MediumMethod::kHardSurface:
      return ScatterAsSurface(entry_, DeepReflectance(albedo));
    case MediumMethod::kTowardsNormal: {
      // Light comes straight down from the border above.
      SurfaceHit hit;
      ++counters_.bounceRays;
      if (!scene_.Rays().Intersect(at, outward, 0, scene_.FarDistance(), hit, kIndirectRays) ||
          hit.part != entry_.part)
        return false;
      SurfacePoint above = entry_;
      shading_.hits.Locate(hit, at, outward, 0, above);
      above.face = -above.face;
      above.footprint = point_.footprint;
      const trFCol down = shadows_.AcrossBorder(hit, at, outward) * medium_.Transmittance(hit.distance);
      return ScatterAsSurface(above, DeepReflectance(albedo) * down * kStraightUp);
    }
    case MediumMethod::kAllDirections:
      break;
  }
  throughput_ *= albedo;
  spread_ = kDiffuseSpread;
  discPdf_ = -1;
  LightInside(albedo);
  sunsCounted_ = true;
  if (!Survives()) return false;
  origin_ = at;
  direction_ = SphereDirection(sampler_.Next());
  nearest_ = 0;
  footprint_ = point_.footprint;
  return true;
}

bool LightWalk::ScatterAsSurface(const SurfacePoint& point, const trFCol& colour) {
  point_ = point;
  if (Dot(point_.normal, point_.face) < 0) point_.normal = -point_.normal;
  isInside_ = sunsCounted_ = false;
  direction_ = -point_.face;
  trBsdf deep;
  deep.AddLambert(colour);
  return Scatter(deep, trFCol(1.0f));
}

void LightWalk::LightInside(const trFCol& albedo) {
  const tr2Vector draw = sampler_.Next();
  for (const auto& sun : scene_.Suns()) {
    const trVector direction = sun->SampleDisc(draw);
    // An even phase function: a quarter of what a white surface that faces the sun sends back.
    trFCol light = sun->Radiance() * 0.25f;
    if (sun->DoShadowsFromSurfaces()) light *= ThroughBorder(point_.relative, direction, 0);
    if (light.IsBlack()) continue;
    shading_.state.CurrentRay().depth = 1;
    Add(throughput_ * light * sun->ThroughVolumes(shading_.state, point_.world));
  }
}

trFCol LightWalk::ColourInside() {
  const trMedium& medium = medium_.Source();
  if (!medium.volumeColourFunction) return FiniteOrBlack(medium.volumeColour);
  const trVector at = point_.world;
  return FiniteOrBlack(medium.volumeColour *
                       shading_.state.CallShaderCd(medium.volumeColourFunction, true, &at, nullptr));
}

trFCol LightWalk::ThroughBorder(const trVector& origin, const trVector& direction, double nearest) {
  SurfaceHit hit;
  ++counters_.shadowRays;
  if (!scene_.Rays().Intersect(origin, direction, nearest, scene_.FarDistance(), hit, kAllRays))
    return trFCol(1.0f);
  if (hit.part != entry_.part) return {};
  trFCol light = shadows_.AcrossBorder(hit, origin, direction) * medium_.TransmittanceOfLight(hit.distance);
  if (light.IsBlack()) return {};
  const trVector border = origin + direction * hit.distance;
  const double offset = 1e-4 + 4e-7 * (std::fabs(border.x) + std::fabs(border.y) + std::fabs(border.z));
  return light * shadows_.Transmittance(border, direction, offset, counters_.shadowRays);
}

}  // namespace ovhost
