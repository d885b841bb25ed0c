// Camera paths.
#include "host/render/engine/path.h"

#include <algorithm>

#include "host/base/parallel.h"
#include "host/render/engine/path_constants.h"
#include "host/render/shade/depth_record.h"
#include "host/render/shade/footprint.h"

namespace ovhost {
namespace {

trFCol Clamped(const trFCol& c, float limit) {
  const float luminance = Luminance(c);
  return limit > 0 && luminance > limit ? c * (limit / luminance) : c;
}

}  // namespace

PathTracer::PathTracer(LitScene& scene, const PathSettings& settings)
    : scene_(scene),
      settings_(settings),
      shading_(scene, scene),
      pieces_(scene, shading_),
      shells_(scene.Volumes()),
      roulette_(settings, scene),
      matter_(settings.followsMatter && !scene.Air().WithMatter().empty()
                  ? std::make_unique<MatterPaths>(scene, counters_)
                  : nullptr),
      walk_(scene, settings, matter_.get(), counters_) {}

trAtomicIntegrator::Result PathTracer::CameraAir(const trVector& direction, double distance,
                                                 CameraSample& result) {
  const trVector& eye = scene_.View().eye;
  const AirShells::Way way = shells_.WayOf(eye, direction, distance, scene_.View().PixelAngularSize());
  if (way.isClear) return {};
  int found = 0;
  while (found < sharedCount_ && !(std::fabs(sharedAir_[found].distance - distance) <= way.tolerance))
    ++found;
  SharedAir& entry = sharedAir_[found];
  if (found == sharedCount_) {
    ++sharedCount_;
    entry.distance = distance;
    entry.air = scene_.AirAlong(shading_.state, matter_ ? scene_.Air().WithoutMatter() : scene_.Volumes(),
                                eye, direction, distance, 1, true, counters_.volumeSamples,
                                result.steps ? &entry.record : nullptr);
  }
  if (result.steps) {
    result.air = &entry.record.Steps();
    CountVolumes(entry.record.Steps(), entry.air.transmittance, result);
  }
  return entry.air;
}

void PathTracer::ShadeHit(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                          double footprintAngle, bool isCamera, Surface& surface) {
  shading_.hits.Locate(hit, origin, direction, footprintAngle, surface);
  const auto sight = isCamera ? PieceShading::Sight::kCamera : PieceShading::Sight::kBounce;
  if (const ShadeCache::Entry* shared = pieces_.Find(hit, surface, direction, sight)) {
    surface.isPlain = true;
    surface.emission = shared->emission;
    surface.diffuse = shared->diffuse;
  } else if (isCamera && ShadesItself(hit)) {
    surface.isPlain = false;
  } else {
    RunShaders(hit, origin, isCamera, surface);
    surface.normal = Normalised(shading_.si.N());
  }
  surface.normal = TowardsFace(surface.normal, surface.face);
}

void PathTracer::RunShaders(const SurfaceHit& hit, const trVector& origin, bool isCamera, Surface& surface) {
  trRenderState::Ray& ray = shading_.state.CurrentRay();
  ray.depth = isCamera ? 1 : 2;
  ray.spread = isCamera ? 0 : kDiffuseSpread;
  ray.highlights = false;
  shading_.Shade(hit, origin, surface);

  const trBsdf& bsdf = shading_.si.Bsdf();
  surface.emission = PositivePart(bsdf.Emission());
  surface.diffuse = PositivePart(bsdf.ColourOf(trLobe::kDiffuseReflection));
  surface.isPlain = IsPlain(bsdf, shading_.si.Oo_surf());
}

bool PathTracer::TowardsSun(const Surface& surface, const SunLight& sun, const tr2Vector& draw,
                            SunRay& ray) const {
  ray.direction = sun.SampleDisc(draw);
  const double cosine = Dot(surface.normal, ray.direction);
  if (cosine <= 0 || surface.diffuse.IsBlack()) return false;
  // A lit shading normal over a turned-away face is the face's own shadow, unless the face stands for a round
  // surface.
  const bool isLifted = surface.lift != trVector();
  if (!isLifted && Dot(surface.face, ray.direction) <= 0) return false;
  ray.nearest = surface.rayOffset;
  ray.origin = surface.relative + surface.face * ray.nearest + surface.lift;
  ray.light = surface.diffuse * sun.Radiance() * static_cast<float>(cosine);
  return true;
}

trFCol PathTracer::DirectLight(const Surface& surface, const tr2Vector& draw) {
  trFCol light;
  SunRay ray;
  for (const auto& sun : scene_.Suns()) {
    if (!TowardsSun(surface, *sun, draw, ray)) continue;
    if (sun->DoShadowsFromSurfaces()) {
      ++counters_.shadowRays;
      if (scene_.Rays().Occluded(ray.origin, ray.direction, ray.nearest, scene_.FarDistance())) {
        if (!scene_.HasSeeThrough()) continue;
        ray.light *= PastClear(ray);
      }
    }
    shading_.state.CurrentRay().depth = 1;
    light += ray.light * sun->ThroughVolumes(shading_.state, surface.world);
  }
  return light;
}

void PathTracer::SamplePixel(int x, int y, std::uint32_t begin, std::uint32_t end, CameraSample* results) {
  sharedCount_ = litCount_ = 0;
  pathCount_ = static_cast<int>(end - begin);
  bundle_.Clear();
  for (int i = 0; i < pathCount_; ++i) {
    StartPath(x, y, begin + i, paths_[i]);
    if (settings_.recordsSteps) {
      steps_[i].clear();
      paths_[i].result.steps = &steps_[i];
    }
    bundle_.Add(paths_[i].origin, paths_[i].direction, paths_[i].nearest);
    hitsOfBundle_[i].part = nullptr;
  }
  if (!scene_.Rays().IsEmpty()) scene_.Rays().Intersect(bundle_, scene_.FarDistance(), hitsOfBundle_.data());
  counters_.cameraRays += pathCount_;
  for (int i = 0; i < pathCount_; ++i) {
    paths_[i].hit = hitsOfBundle_[i];
    if (ShadeCameraRay(paths_[i])) lit_[litCount_++] = i;
  }
  LightCameraHits();
  for (int i = 0; i < litCount_; ++i) Follow(paths_[lit_[i]]);
  for (int i = 0; i < pathCount_; ++i) {
    paths_[i].result.beauty = paths_[i].result.light.Sum();
    results[i] = paths_[i].result;
  }
}

void PathTracer::StartPath(int x, int y, std::uint32_t index, Path& path) const {
  const trView& view = scene_.View();
  const std::uint64_t pixelKey =
      MixBits64(static_cast<std::uint64_t>(y) << 32 | static_cast<std::uint32_t>(x)) ^ scene_.Frame().seed;
  path.sampler = PixelSampler(pixelKey, index);
  path.random = MixBits64(pixelKey + index);
  path.throughput = trFCol(1.0f);
  path.result = CameraSample();

  path.origin = trVector();
  path.direction = settings_.filter.Direction(view, x, y, path.sampler.Next());
  path.nearest = view.nearClip;
}

bool PathTracer::ShadeCameraRay(Path& path) {
  const bool isHit = path.hit.part != nullptr;
  double distance = isHit ? path.hit.distance : scene_.FarDistance();
  CameraSample& result = path.result;
  shading_.si.Random() = {path.random};
  Matter::Collision collision;
  const bool isScattered = matter_ && matter_->Collide(shading_.state, scene_.View().eye, path.direction,
                                                       distance, path.throughput, collision);
  if (isScattered) distance = collision.distance;
  const trAtomicIntegrator::Result air = CameraAir(path.direction, distance, result);
  result.atmosphere = FiniteOrBlack(air.Colour());
  result.light.sky = result.atmosphere;
  path.throughput *= air.transmittance;
  if (isScattered) {
    FollowMatter(path, collision);
    return false;
  }
  if (!isHit || path.hit.IsHoldout()) {
    result.alpha = 1 - Brightness(path.throughput);
    if (isHit) return false;
    // What a picture can't hold is left to the view transform.
    AddVisibleDiscs(scene_, path.direction, path.throughput, result.light.sky);
    return false;
  }
  Surface& surface = path.surface;
  ShadeHit(path.hit, path.origin, path.direction, kPixelFootprint * scene_.View().PixelAngularSize(), true,
           surface);
  if (!surface.isPlain) {
    FollowLobes(path, 1);
    return false;
  }
  result.alpha = 1;
  FillSurfaceLayers(surface, distance, surface.diffuse, path.hit.NodeId(), result);
  result.light.emission = FiniteOrBlack(path.throughput * surface.emission);
  return true;
}

void PathTracer::FollowMatter(Path& path, const Matter::Collision& collision) {
  shading_.si.Random() = {MixBits64(path.random + 2)};
  const trFCol light =
      FiniteOrBlack(matter_->Light(shading_.state, collision, path.direction, path.throughput));
  path.result.atmosphere += light;
  path.result.light.sky += light;
  path.result.alpha = 1;
  if (path.result.steps)
    AddScattering(collision.distance, collision.distance * scene_.View().PixelAngularSize(), light,
                  path.throughput, path.result);
}

trFCol PathTracer::SunAtCamera(const SunLight& sun, const Path& path) {
  if (!matter_) return sun.ThroughVolumes(shading_.state, path.surface.world);
  shading_.si.Random() = {MixBits64(path.random + 3)};
  return matter_->ThroughVolumes(shading_.state, sun, path.surface.world);
}

void PathTracer::LightCameraHits() {
  std::array<tr2Vector, kSamplesTogether> draws;
  for (int i = 0; i < litCount_; ++i) draws[i] = paths_[lit_[i]].sampler.Next();
  shading_.state.CurrentRay().depth = 1;
  for (const auto& sun : scene_.Suns()) {
    std::array<SunRay, kSamplesTogether> rays;
    std::array<Path*, kSamplesTogether> reached;
    bundle_.Clear();
    for (int i = 0; i < litCount_; ++i) {
      Path& path = paths_[lit_[i]];
      SunRay& ray = rays[bundle_.count];
      if (!TowardsSun(path.surface, *sun, draws[i], ray)) continue;
      reached[bundle_.count] = &path;
      bundle_.Add(ray.origin, ray.direction, ray.nearest);
    }
    std::uint32_t occluded = 0;
    if (sun->DoShadowsFromSurfaces() && bundle_.count > 0) {
      counters_.shadowRays += bundle_.count;
      occluded = scene_.Rays().Occluded(bundle_, scene_.FarDistance());
    }
    for (int k = 0; k < bundle_.count; ++k) {
      if (occluded >> k & 1) {
        if (!scene_.HasSeeThrough()) continue;
        rays[k].light *= PastClear(rays[k]);
      }
      reached[k]->result.direct += rays[k].light * SunAtCamera(*sun, *reached[k]);
    }
  }
  for (int i = 0; i < litCount_; ++i) {
    Path& path = paths_[lit_[i]];
    LightLayers& layers = path.result.light;
    layers.diffuse = FiniteOrBlack(path.throughput * path.result.direct);
    path.result.direct = layers.diffuse + layers.emission;
  }
}

void PathTracer::AddIndirect(Path& path, const trFCol& light) const {
  const trFCol added = Clamped(FiniteOrBlack(light), settings_.clampIndirect);
  path.result.light.diffuse += added;
  path.result.indirect += added;
}

bool PathTracer::Bounce(Path& path, int depth) const {
  if (depth > settings_.maxBounces || scene_.SkyOnSurfaces().IsBlack()) return false;
  const Surface& surface = path.surface;
  path.throughput *= surface.diffuse;
  if (depth == 1) path.throughput *= scene_.SkyOnSurfaces();
  const tr2Vector bounce = path.sampler.Next();
  const double survive = roulette_.Chance(depth, path.throughput, path.result.light.Sum());
  if (survive < 1 && path.sampler.Next().x >= survive) return false;
  path.throughput *= static_cast<float>(1 / survive);
  if (path.throughput.MaxChannel() <= 0) return false;
  path.direction = CosineDirection(surface.normal, bounce);
  if (Dot(path.direction, surface.face) <= 0) return false;
  path.nearest = surface.rayOffset;
  path.origin = surface.relative + surface.face * surface.rayOffset;
  return true;
}

trFCol PathTracer::PastClear(const SunRay& ray) {
  return walk_.Shadows().ThroughClear(ray.origin, ray.direction, ray.nearest, counters_.shadowRays);
}

void PathTracer::FollowLobes(Path& path, int depth) {
  LightWalk::Start start;
  start.sampler = path.sampler;
  start.random = MixBits64(path.random + depth);
  start.direction = path.direction;
  start.throughput = path.throughput;
  start.depth = depth;
  start.diffuseBounces = depth - 1;
  start.hit = &path.hit;
  start.isInside = path.inside && path.inside == path.hit.part;
  start.castsShadows = shading_.state.CurrentRay().groupCastsShadows;
  walk_.Follow(start, path.surface, shading_.si.Bsdf(), shading_.si.Oo_surf(), path.result);
}

void PathTracer::Follow(Path& path) {
  const std::uint64_t random = path.random;
  const trFCol gathered = path.result.light.Sum();
  const int ways = roulette_.Ways(path.throughput * path.surface.diffuse, gathered);
  const Surface start = path.surface;
  const PixelSampler sampler = path.sampler;
  const trFCol throughput = path.throughput;
  for (int way = 0; way < ways; ++way) {
    path.random = random + (static_cast<std::uint64_t>(way) << 32);
    shading_.si.Random() = {MixBits64(path.random + 1)};
    path.surface = start;
    path.sampler = sampler.Further(way);
    path.throughput = throughput;
    if (!Bounce(path, 1)) continue;
    path.throughput *= 1.0f / static_cast<float>(ways);
    for (int depth = 2; FollowRay(path, depth) && Bounce(path, depth);) ++depth;
  }
}

trFCol PathTracer::Gather(const trVector& origin, const trVector& direction, double nearest,
                          const PixelSampler& sampler, std::uint64_t random, const SurfacePart* inside) {
  Path path;
  path.inside = inside;
  path.sampler = sampler;
  path.random = random;
  path.origin = origin;
  path.direction = direction;
  path.nearest = nearest;
  shading_.si.Random() = {MixBits64(random + 1)};
  for (int depth = 2; FollowRay(path, depth) && Bounce(path, depth);) ++depth;
  return path.result.indirect;
}

bool PathTracer::FollowRay(Path& path, int depth) {
  ++counters_.bounceRays;
  const bool isHit = scene_.Rays().Intersect(path.origin, path.direction, path.nearest, scene_.FarDistance(),
                                             path.hit, kIndirectRays);
  const trVector from = path.origin + scene_.View().eye;
  trFCol sky;
  if (!isHit && scene_.Air().OpenSky(shading_.state, from, path.direction, FrameAir::Sight::kBounce, sky)) {
    AddIndirect(path, path.throughput * sky);
    return false;
  }
  // What a diffuse bounce sees is averaged over the hemisphere: blurred air does.
  const trAtomicIntegrator::Result air =
      scene_.AirAlong(shading_.state, from, path.direction, isHit ? path.hit.distance : scene_.FarDistance(),
                      depth, false, counters_.volumeSamples);
  AddIndirect(path, path.throughput * air.Colour());
  if (!isHit) return false;
  path.throughput *= air.transmittance;

  Surface& surface = path.surface;
  ShadeHit(path.hit, path.origin, path.direction, kBounceFootprint, false, surface);
  if (!surface.isPlain) {
    FollowLobes(path, depth);
    return false;
  }
  AddIndirect(path, path.throughput * (surface.emission + DirectLight(surface, path.sampler.Next())));
  // What deeper bounces would bring, from the tabulated sky.
  if (depth > settings_.maxBounces)
    AddIndirect(path, path.throughput * surface.diffuse *
                          scene_.IndirectDiffuse(shading_.state, surface.world, surface.normal) *
                          kDeepVisibility);
  return true;
}

}  // namespace ovhost
