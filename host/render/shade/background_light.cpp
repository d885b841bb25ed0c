// Light that arrives at points of the air.
#include "host/render/shade/background_light.h"

#include "host/render/air/air_march.h"
#include "host/render/shade/footprint.h"
#include "host/render/shade/lobes.h"
#include "host/render/shade/piece_shading.h"

namespace ovhost {

/// A state's own means of running surface shaders: its own fields may be in use by what asks.
struct BackgroundLight::OwnShading {
  struct Tools {
    explicit Tools(LitScene& scene) : shading(scene, scene), pieces(scene, shading) {}
    ShadingContext shading;
    PieceShading pieces;
  };
  std::unique_ptr<Tools> tools;
};

trFCol BackgroundLight::BackgroundFunction(trRenderState& state, const trVector& point,
                                           const trVector& direction) {
  const LookupScope lookup;
  const trRayGuard guard(state);
  const KeyedDraws draws(state, KeyOfPoint(point) + 2 * KeyOfPoint(direction));
  const trVector origin = point - scene_.View().eye;
  SurfaceHit hit;
  const bool isHit = !scene_.Rays().IsEmpty() &&
                     scene_.Rays().Intersect(origin, direction, 0, scene_.FarDistance(), hit, kIndirectRays);
  trFCol sky;
  if (!isHit && scene_.Air().OpenSky(state, point, direction, FrameAir::Sight::kBackground, sky)) return sky;
  AirRay ray;
  ray.origin = point;
  ray.direction = direction;
  ray.distance = isHit ? hit.distance : scene_.FarDistance();
  ray.depth = kDepthOfBackground;
  ray.isSharp = ray.filtersSky = ray.limitsEnviro = false;
  std::uint64_t samples = 0;
  const trAtomicIntegrator::Result air = MarchAir(state, scene_.Volumes(), ray, samples);
  if (!isHit || air.transmittance.IsBlack()) return air.Colour();
  PutInHand(state, ray);
  return air.Colour() + air.transmittance * OfSurface(state, hit, origin, direction);
}

trFCol BackgroundLight::OfSurface(trRenderState& state, const SurfaceHit& hit, const trVector& origin,
                                  const trVector& direction) {
  std::unique_ptr<OwnShading::Tools>& tools = state.Scratch<OwnShading>(this).tools;
  if (!tools) tools = std::make_unique<OwnShading::Tools>(scene_);
  ShadingContext& shading = tools->shading;
  SurfacePoint surface;
  shading.hits.Locate(hit, origin, direction, kBounceFootprint, surface);
  trFCol emission, diffuse;
  if (const ShadeCache::Entry* shared =
          tools->pieces.Find(hit, surface, direction, PieceShading::Sight::kBounce)) {
    emission = shared->emission;
    diffuse = shared->diffuse;
  } else {
    trRenderState::Ray& ray = shading.state.CurrentRay();
    ray = trRenderState::Ray();
    ray.origin = origin + scene_.View().eye;
    ray.end = surface.world;
    ray.depth = 2;
    ray.spread = kDiffuseSpread;
    ray.highlights = false;
    shading.si.Random() = {KeyOfPoint(surface.world)};
    shading.Shade(hit, origin, surface);
    emission = PositivePart(shading.si.Bsdf().Emission());
    diffuse = PositivePart(shading.si.Bsdf().ColourOf(trLobe::kDiffuseReflection));
    surface.normal = Normalised(shading.si.N());
  }
  if (diffuse.IsBlack()) return emission;
  surface.normal = TowardsFace(surface.normal, surface.face);

  trFCol light;
  const trVector above = surface.relative + surface.face * surface.rayOffset + surface.lift;
  for (const auto& sun : scene_.Suns()) {
    const double cosine = Dot(surface.normal, sun->Dir());
    if (cosine <= 0 || (surface.lift == trVector() && Dot(surface.face, sun->Dir()) <= 0)) continue;
    if (sun->DoShadowsFromSurfaces() &&
        scene_.Rays().Occluded(above, sun->Dir(), surface.rayOffset, scene_.FarDistance()))
      continue;
    // Volumes that hide themselves from who asks here cast their shadows all the same.
    light += sun->Radiance() * static_cast<float>(cosine) * sun->ThroughVolumes(shading.state, surface.world);
  }
  light += scene_.IndirectDiffuse(state, surface.world, surface.normal);
  return emission + diffuse * light;
}

}  // namespace ovhost
