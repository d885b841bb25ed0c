// From scattering to scattering.
#include "host/render/engine/matter_paths.h"

#include <algorithm>

namespace ovhost {
namespace {

/// Paths that carry less than this go on by chance.
constexpr float kFaint = 0.1f;
/// Radiance per phase function of light that is a white surface's radiance: the surface sends a pi-th of what
/// comes, evenly; the volume spreads it over all directions.
constexpr float kEvenPhase = 0.25f;
/// Scatterings between looks at whether the render is to end.
constexpr int kScatteringsBetweenLooks = 256;

}  // namespace

MatterPaths::MatterPaths(LitScene& scene, PathCounters& counters)
    : scene_(scene), matter_(scene.Air().WithMatter()), counters_(counters), shadows_(scene) {}

trFCol MatterPaths::ThroughVolumes(trRenderState& state, const SunLight& sun, const trVector& point) {
  if (!sun.DoShadowsFromAtmosphere()) return trFCol(1.0f);
  const trRayGuard guard(state);
  state.CurrentRay() = trRenderState::Ray();
  const trFCol left = scene_.Air().PastMatter(state, sun, point);
  if (left.IsBlack()) return left;
  return left * matter_.Transmittance(state, {point, sun.Dir(point), scene_.FarDistance()});
}

trFCol MatterPaths::FromSuns(trRenderState& state, const Matter::Collision& at, const trVector& direction) {
  const PhaseTable& phase = matter_.Phase(at.volume);
  trFCol light;
  for (const auto& sun : scene_.Suns()) {
    const trVector towards = sun->SampleDisc({state.Random(), state.Random()});
    const float scattered = phase.Value(Dot(direction, towards)) * kEvenPhase;
    if (!(scattered > 0)) continue;
    trFCol arriving = sun->Radiance() * scattered;
    if (sun->DoShadowsFromSurfaces() && !scene_.Rays().IsEmpty())
      arriving *= shadows_.Transmittance(at.point - scene_.View().eye, towards, 0, counters_.shadowRays);
    if (!arriving.IsBlack()) light += arriving * ThroughVolumes(state, *sun, at.point);
  }
  return light;
}

trFCol MatterPaths::FromBeyond(trRenderState& state, const trVector& origin, const trVector& direction,
                               const SurfaceHit* hit) {
  trFCol sky;
  if (!hit && scene_.Air().OpenSky(state, origin, direction, FrameAir::Sight::kPastMatter, sky)) return sky;
  AirRay ray;
  ray.origin = origin;
  ray.direction = direction;
  ray.distance = hit ? hit->distance : scene_.FarDistance();
  ray.depth = 2;
  ray.isSharp = false;
  const trAtomicIntegrator::Result air =
      MarchAir(state, scene_.Air().WithoutMatter(), ray, counters_.volumeSamples);
  if (!hit || air.transmittance.IsBlack()) return air.Colour();
  PutInHand(state, ray);
  return air.Colour() + air.transmittance *
                            scene_.Background().OfSurface(state, *hit, origin - scene_.View().eye, direction);
}

trFCol MatterPaths::Light(trRenderState& state, const Matter::Collision& first, const trVector& direction,
                          trFCol throughput, int mostScatterings) {
  trFCol light;
  Matter::Collision at = first;
  trVector along = direction;
  for (int event = 1; event <= mostScatterings; ++event) {
    throughput *= at.albedo;
    const float most = throughput.MaxChannel();
    if (!(most > 0)) break;
    if (most < kFaint) {
      if (state.Random() * kFaint >= most) break;
      throughput *= kFaint / most;
    }
    if (event % kScatteringsBetweenLooks == 0 && state.IsPausingOrAborting()) break;
    light += throughput * FromSuns(state, at, along);
    along = matter_.Phase(at.volume).Sample(along, {state.Random(), state.Random()});
    const trVector from = at.point;
    SurfaceHit hit;
    ++counters_.bounceRays;
    const bool isHit =
        !scene_.Rays().IsEmpty() &&
        scene_.Rays().Intersect(from - scene_.View().eye, along, 0, scene_.FarDistance(), hit, kIndirectRays);
    if (Collide(state, from, along, isHit ? hit.distance : scene_.FarDistance(), throughput, at)) continue;
    // Of a bounded number of scatterings, the last one sees suns alone.
    if (event < mostScatterings) light += throughput * FromBeyond(state, from, along, isHit ? &hit : nullptr);
    break;
  }
  return light;
}

}  // namespace ovhost
