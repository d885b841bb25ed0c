// Rays from surface to surface, as surfaces trace them themselves.
#include "host/render/engine/traced_light.h"

#include <algorithm>

#include "core/guarded.h"
#include "host/base/parallel.h"
#include "host/render/air/media.h"
#include "host/render/engine/path_constants.h"
#include "host/render/shade/depth_record.h"

namespace ovhost {
namespace {

/// What less than of a ray isn't followed past sheets.
constexpr float kLeastLeft = 1e-3f;
/// What a medium that scatters evenly sends on of light from all round, beside a white surface.
constexpr float kEvenPhase = 0.25f;
/// A point this near to the surface in hand is on it, metres: surfaces start their rays just off themselves.
constexpr double kOnSurface = 1e-4;

void Add(LightLayers& sum, const LightLayers& light, const trFCol& scale) {
  sum.diffuse += FiniteOrBlack(light.diffuse * scale);
  sum.specular += FiniteOrBlack(light.specular * scale);
  sum.transmission += FiniteOrBlack(light.transmission * scale);
  sum.emission += FiniteOrBlack(light.emission * scale);
  sum.sky += FiniteOrBlack(light.sky * scale);
}

}  // namespace

TracedLight::TracedLight(LitScene& scene, const TraceSettings& settings, IndirectLight& indirect,
                         PathCounters& counters)
    : scene_(scene),
      settings_(settings),
      indirect_(indirect),
      counters_(counters),
      shadows_(scene),
      plain_(scene, scene),
      pieces_(scene, plain_),
      air_(scene, airShading_),
      levels_(static_cast<size_t>(std::max(settings.maxDepth, 1)) + 2) {
  for (int i = 0; i < scene.NumLights(); ++i) lights_.emplace_back(*this, i);
  if (!scene.SkyOnSurfaces().IsBlack()) sky_.emplace(*this);
  airShading_.SetThread(ThreadSlot());
}

void TracedLight::Follow(const Start& start, CameraSample& result) {
  sampler_ = start.sampler;
  random_ = start.random;
  numShaded_ = 0;
  Ray ray;
  ray.origin = start.origin;
  ray.direction = start.direction;
  Surfaces(ray, start.hit, start.throughput, result.light, &result);
}

// --- Along a ray

LightLayers TracedLight::Radiance(Ray ray, double& distance) {
  LightLayers sum;
  trFCol left(1.0f);
  SurfaceHit hit;
  distance = scene_.FarDistance();
  if (!Travel(ray, hit, left, sum, nullptr)) return sum;
  distance = hit.distance;
  Surfaces(ray, hit, left, sum, nullptr);
  return sum;
}

trAtomicIntegrator::Result TracedLight::Air(const Ray& ray, double distance, AirRecord* record) {
  if (scene_.Volumes().empty()) return {};
  airShading_.Random() = {MixBits64(random_ + 0x100 + ++numShaded_)};
  // Mirrors see the air as sharp as the eye does, and volumes drop light by depth.
  return scene_.AirAlong(air_, ray.origin + scene_.View().eye, ray.direction, distance,
                         ray.depth == 1 ? 1 : 2, ray.spread < kBlurredSpread, counters_.volumeSamples,
                         record);
}

bool TracedLight::Travel(const Ray& ray, SurfaceHit& hit, trFCol& left, LightLayers& sum,
                         CameraSample* camera) {
  ++counters_.bounceRays;
  const bool isHit =
      scene_.Rays().Intersect(ray.origin, ray.direction, ray.nearest, scene_.FarDistance(), hit, ray.kind);
  if (!ray.inside) {
    trFCol sky;
    if (!isHit && ray.spread >= kBlurredSpread &&
        scene_.Air().OpenSky(air_, ray.origin + scene_.View().eye, ray.direction, FrameAir::Sight::kBounce,
                             sky)) {
      sum.sky += left * sky;
      return false;
    }
    AirRecord* const record = camera && camera->steps ? &airRecord_ : nullptr;
    const trAtomicIntegrator::Result air = Air(ray, isHit ? hit.distance : scene_.FarDistance(), record);
    const trFCol light = FiniteOrBlack(left * air.Colour());
    sum.sky += light;
    if (camera) camera->atmosphere += light;
    if (record) AddVolumesBehind(record->Steps(), air.transmittance, ray.origin.Length(), left, *camera);
    left *= air.transmittance;
  }
  if (isHit) return true;
  // Surfaces have asked for the suns themselves; only the eye sees their discs.
  if (ray.depth > 1) return false;
  AddVisibleDiscs(scene_, ray.direction, left, sum.sky);
  return false;
}

void TracedLight::Surfaces(Ray ray, SurfaceHit hit, trFCol left, LightLayers& sum, CameraSample* camera) {
  bool hasFilledLayers = false;
  for (int sheet = 0; sheet < kMostSheets; ++sheet) {
    if (ray.kind == kCameraRays && hit.IsHoldout()) break;
    Level& level = Shade(ray, hit);
    const trFCol cover = level.cover;
    if (!cover.IsBlack()) {
      const Outgoing outgoing = OutgoingOf(level);
      const trFCol share = left * cover;
      Add(sum, outgoing.light, share);
      if (camera) {
        const trFCol direct = FiniteOrBlack(outgoing.direct * share);
        camera->direct += direct;
        camera->indirect += FiniteOrBlack(outgoing.light.Sum() * share) - direct;
        if (!hasFilledLayers) FillLayers(level, *camera);
        hasFilledLayers = true;
        if (camera->steps)
          AddSurface(level.point.relative.Length(), FiniteOrBlack(outgoing.light.Sum() * share),
                     Brightness(share), *camera);
      }
    }
    left *= trFCol(1.0f) - cover;
    if (!(left.MaxChannel() > kLeastLeft)) {
      if (camera) camera->alpha = 1;
      return;
    }

    // On past it, with all that was known of the way before.
    ray.footprint = level.point.footprint;
    ray.origin = level.point.relative - level.point.face * level.point.rayOffset;
    ray.nearest = level.point.rayOffset;
    if (!Travel(ray, hit, left, sum, camera)) break;
  }
  if (camera) camera->alpha = 1 - Brightness(left);
}

void TracedLight::FillLayers(const Level& level, CameraSample& camera) {
  trFCol albedo = level.diffuse + level.translucency;
  for (int c = 0; c < 3; ++c) albedo[c] = std::min(albedo[c], 1.0f);
  FillSurfaceLayers(level.point, level.point.relative.Length(), albedo, level.hit.NodeId(), camera);
}

// --- At a surface

TracedLight::Level& TracedLight::Shade(const Ray& ray, const SurfaceHit& hit) {
  std::unique_ptr<Level>& slot = levels_[static_cast<size_t>(ray.depth)];
  if (!slot) slot = std::make_unique<Level>(scene_, *this);
  Level& level = *slot;
  level.ray = ray;
  level.hit = hit;
  level.shading.hits.Locate(hit, ray.origin, ray.direction, 0, level.point);
  level.point.footprint = ray.footprint + hit.distance * std::max(ray.spread * kFootprintOfSpread,
                                                                  0.5 * scene_.View().PixelAngularSize());
  level.surroundings.reset();
  level.suns.resize(lights_.size());
  const tr2Vector draw = sampler_.Next();
  for (size_t i = 0; i < lights_.size(); ++i)
    level.suns[i] = {scene_.Suns()[i]->SampleDisc(draw), {std::nullopt, std::nullopt}};

  const ShadeCache::Entry* shared =
      ray.depth > 1 ? pieces_.Find(hit, level.point, ray.direction, PieceShading::Sight::kCone) : nullptr;
  if (shared) {
    level.cover = trFCol(1.0f);
    level.diffuse = shared->diffuse;
    level.emission = shared->emission;
    level.translucency = level.highlights = level.reflected = level.transmitted = trFCol();
  } else {
    RunShaders(level);
  }
  trVector& normal = level.point.normal;
  if (!shared) normal = Normalised(level.shading.si.N());
  normal = TowardsFace(normal, level.point.face);
  return level;
}

void TracedLight::RunShaders(Level& level) {
  const Ray& ray = level.ray;
  trRenderState::Ray& state = level.shading.state.CurrentRay();
  state = trRenderState::Ray();
  state.origin = ray.origin + scene_.View().eye;
  state.end = level.point.world;
  state.depth = ray.isQuick ? settings_.maxDepth : ray.depth;
  state.spread = ray.spread;
  state.importance = ray.importance;
  state.pixelAngularSize = scene_.View().PixelAngularSize();
  level.shading.si.Random() = {MixBits64(random_ + ++numShaded_)};
  current_ = &level;
  level.shading.Shade(level.hit, ray.origin, level.point);
  current_ = &level;

  const trBsdf& bsdf = level.shading.si.Bsdf();
  const trRenderState::Outputs& outputs = level.shading.state.ShadeOutputs();
  level.cover = CoverOf(level.shading.si.Oo_surf());
  level.diffuse = PositivePart(bsdf.ColourOf(trLobe::kDiffuseReflection));
  level.translucency = PositivePart(bsdf.ColourOf(trLobe::kDiffuseTransmission));
  level.emission = PositivePart(bsdf.Emission());
  level.highlights = PositivePart(outputs.highlight);
  level.reflected = PositivePart(outputs.reflection) + PositivePart(bsdf.ColourOf(trLobe::kLight));
  level.transmitted = PositivePart(outputs.transmission);
}

TracedLight::Outgoing TracedLight::OutgoingOf(Level& level) {
  const trVector &normal = level.point.normal, &face = level.point.face;
  Outgoing outgoing;
  for (size_t i = 0; i < level.suns.size(); ++i) {
    const trVector& direction = level.suns[i].direction;
    const double cosine = Dot(normal, direction);
    // A lit shading normal over a turned-away face is the face's own shadow, unless the face stands for a
    // round surface.
    const bool isOnFace = level.point.lift != trVector() || Dot(face, direction) > 0;
    const trFCol& colour = cosine > 0 ? level.diffuse : level.translucency;
    if (colour.IsBlack() || (cosine > 0 && !isOnFace)) continue;
    outgoing.direct +=
        colour * SunOn(level, static_cast<int>(i), cosine > 0, true) * static_cast<float>(std::fabs(cosine));
  }
  outgoing.light.diffuse = outgoing.direct;
  const bool isSeen = level.ray.depth == 1;
  const SurfacePart* const inside = level.IsContents() ? level.ray.inside : nullptr;
  if (!level.diffuse.IsBlack())
    outgoing.light.diffuse +=
        level.diffuse * indirect_.At(level.hit, level.point, normal, isSeen, inside, sampler_);
  if (!level.translucency.IsBlack())
    outgoing.light.diffuse +=
        level.translucency * indirect_.At(level.hit, level.point, -normal, isSeen, inside, sampler_);
  outgoing.light.emission = level.emission;
  outgoing.light.specular = level.highlights + level.reflected;
  outgoing.light.transmission = level.transmitted;
  outgoing.direct += level.emission + level.highlights;
  return outgoing;
}

// --- Rays of surfaces

bool TracedLight::MakeRay(trRenderState& state, const trVector& origin, const trVector& direction, Ray& ray,
                          trFCol& scale) {
  if (!current_ || current_->ray.isQuick || current_->ray.depth >= settings_.maxDepth) return false;
  const Level& from = *current_;
  const trRenderState::Ray& sender = state.CurrentRay();
  ray = Ray();
  ray.depth = from.ray.depth + 1;
  ray.kind = kIndirectRays;
  ray.direction = Normalised(direction);
  ray.spread = from.ray.spread;
  ray.footprint = from.point.footprint;
  if (!(ray.direction.LengthSquared() > 0.5)) return false;

  // What counts little is left to chance, so that rays don't double with every depth.
  ray.importance = from.ray.importance * std::clamp(sender.weight, 0.0f, 1.0f);
  const tr2Vector chance = sampler_.Next(), draw = sampler_.Next();
  if (ray.importance < settings_.leastImportance) {
    const double survive = ray.importance / settings_.leastImportance;
    if (!(chance.x < survive)) return false;
    scale *= static_cast<float>(1 / survive);
    ray.importance = settings_.leastImportance;
  }

  // A ray for a whole lobe goes where the lobe's facets send it.
  if (sender.lobe) {
    trBsdf lobe;
    lobe.AddLobe(*sender.lobe);
    trVector normal = Normalised(from.shading.si.N());
    if (Dot(normal, from.point.face) < 0) normal = -normal;
    lobes_.Make(lobe, -from.ray.direction, normal, from.point.face);
    LobeSet::Sampled sampled;
    if (!lobes_.Weigh(trFCol(1.0f), {}) || !lobes_.Sample(0, draw, sampled)) return false;
    ray.direction = sampled.direction;
    for (int c = 0; c < 3; ++c) scale[c] *= GuardedDivide(sampled.weight[c], sender.lobe->colour[c]);
    if (!sampled.isStraight)
      ray.spread = std::max(ray.spread, kSpreadOfRoughness * std::min(sampled.roughness, 1.0f));
    if (sampled.isStraight && from.ray.kind == kCameraRays) ray.kind = kCameraRays;
  }

  const trVector start = origin - scene_.View().eye;
  if ((origin - from.point.world).LengthSquared() < kOnSurface * kOnSurface) {
    const double side = Dot(ray.direction, from.point.face) > 0 ? 1 : -1;
    ray.origin = from.point.relative + from.point.face * (side * from.point.rayOffset);
    ray.nearest = from.point.rayOffset;
  } else {
    ray.origin = start;
    ray.nearest = RayOffset(start);
  }
  return true;
}

trFCol TracedLight::Trace(trRenderState& state, const trVector& origin, const trVector& direction,
                          bool quick) {
  Ray ray;
  trFCol scale(1.0f);
  if (!MakeRay(state, origin, direction, ray, scale)) return {};
  ray.isQuick = quick;
  Level* const kept = current_;
  double distance;
  const trFCol light = Radiance(ray, distance).Sum() * scale;
  current_ = kept;
  return FiniteOrBlack(light);
}

trFCol TracedLight::TraceInside(trRenderState& state, const trVector& origin, const trVector& direction,
                                double& distance) {
  Ray ray;
  trFCol scale(1.0f);
  distance = 0;
  if (!MakeRay(state, origin, direction, ray, scale)) return {};
  ray.inside = current_->hit.part;
  Level* const kept = current_;
  const trFCol light = Radiance(ray, distance).Sum() * scale;
  current_ = kept;
  return FiniteOrBlack(light);
}

// --- Suns

trFCol TracedLight::SurroundingsAt(const trVector& point, const trRenderState::Ray& asked) {
  if (!current_) {
    trFCol above, below;
    scene_.Air().SkyLight(air_, point, false, above, below);
    return (above + below) * scene_.SkyOnSurfaces() * kEvenPhase;
  }
  Level& level = *current_;
  if (!level.surroundings)
    level.surroundings = indirect_.At(level.hit, level.point, Normalised(level.hit.faceNormal),
                                      level.ray.depth == 1, nullptr, sampler_);
  if (!asked.medium) return *level.surroundings;
  return *level.surroundings * PathMedium(*asked.medium).OfSurroundings(asked.medium->volumeColour);
}

trFCol TracedLight::SunAt(int sun, const trVector& point, const trRenderState::Ray& asked) {
  const bool isShadowed = asked.tracesShadows;
  if (!current_) return scene_.Suns()[static_cast<size_t>(sun)]->Radiance();
  Level& level = *current_;
  const trVector offset = point - level.point.world;
  if (offset.LengthSquared() < kOnSurface * kOnSurface)
    return SunOn(level, sun, Dot(offset, level.point.face) >= 0, isShadowed);
  // Inside the surface in hand.
  const SunLight& light = *scene_.Suns()[static_cast<size_t>(sun)];
  trFCol radiance = light.Radiance();
  radiance *= isShadowed && light.DoShadowsFromSurfaces()
                  ? ThroughBorder(level.hit.part, point - scene_.View().eye,
                                  light.SampleDisc(sampler_.Next()), 0, asked.medium)
                  : trFCol(kEvenPhase);
  air_.CurrentRay() = trRenderState::Ray();
  return radiance.IsBlack() ? radiance : radiance * light.ThroughVolumes(air_, point);
}

trFCol TracedLight::SunOn(Level& level, int sun, bool isOnFace, bool isShadowed) {
  Level::SunLook& look = level.suns[static_cast<size_t>(sun)];
  std::optional<trFCol>& known = look.light[isOnFace ? 0 : 1];
  if (known && isShadowed) return *known;
  const SunLight& light = *scene_.Suns()[static_cast<size_t>(sun)];
  const SurfacePoint& point = level.point;
  trFCol radiance = light.Radiance();
  if (isShadowed && light.DoShadowsFromSurfaces()) {
    trVector origin = point.relative + point.face * (isOnFace ? point.rayOffset : -point.rayOffset);
    if (isOnFace) origin += point.lift;
    radiance *= level.IsContents()
                    ? ThroughBorder(level.ray.inside, origin, look.direction, point.rayOffset, nullptr)
                    : shadows_.Transmittance(origin, look.direction, point.rayOffset, counters_.shadowRays);
  }
  air_.CurrentRay() = trRenderState::Ray();
  if (!radiance.IsBlack()) radiance *= light.ThroughVolumes(air_, point.world);
  if (isShadowed) known = radiance;
  return radiance;
}

trFCol TracedLight::ThroughBorder(const SurfacePart* border, const trVector& origin,
                                  const trVector& direction, double nearest, const trMedium* medium) {
  return shadows_.ThroughBorder(border, origin, direction, nearest, counters_.shadowRays,
                                trFCol(medium ? kEvenPhase : 1.0f), [&](const SurfaceHit& hit) {
                                  if (!medium) return trFCol(1.0f);
                                  return PathMedium(*medium).OfBeam(medium->volumeColour,
                                                                    std::fabs(Dot(hit.faceNormal, direction)),
                                                                    hit.distance);
                                });
}

}  // namespace ovhost
