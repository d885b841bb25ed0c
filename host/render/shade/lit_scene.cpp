// Answering shaders.
#include "host/render/shade/lit_scene.h"

#include "host/render/dice/dicer.h"

namespace ovhost {
namespace {

/// Albedo of ground whose light only brightens the air above it.
constexpr float kGroundAlbedo = 0.2f;

}  // namespace

trFCol LitScene::GroundRadiance(const trVector& origin, const trVector& direction, double& distance) const {
  SurfaceHit hit;
  if (accel_->IsEmpty() ||
      !accel_->Intersect(origin - View().eye, direction, 1e-3, distance, hit, kIndirectRays))
    return {};
  distance = hit.distance;
  const trVector normal = Dot(hit.faceNormal, direction) <= 0 ? hit.faceNormal : -hit.faceNormal;
  trFCol light;
  for (const auto& sun : lights_) {
    const double cosine = Dot(normal, sun->Dir());
    if (cosine > 0)
      light += sun->Radiance() * static_cast<float>(kGroundAlbedo * cosine) *
               air_.ThroughTables(*sun, origin + direction * hit.distance);
  }
  return light;
}

trFCol LitScene::Trace(trRenderState& state, const trVector& origin, const trVector& direction, bool) {
  // Light along a ray without the surface's own network: the air, and ground of middling albedo behind it.
  double distance = FarDistance();
  const trFCol leaving = GroundRadiance(origin, direction, distance);
  const trAtomicIntegrator::Result air =
      MarchBetween(state, Volumes(), origin, origin + direction * distance, true);
  return air.Colour() + air.transmittance * leaving;
}

trFCol LitScene::TraceOpacity(trRenderState& state, const trVector& from, const trVector& to) {
  const trVector path = to - from;
  const double length = path.Length();
  if (state.CurrentRay().tracesShadows && !accel_->IsEmpty() && length > 0 &&
      accel_->Occluded(from - View().eye, path * (1 / length), 1e-3, length))
    return trFCol(1.0f);
  return trFCol(1.0f) - MarchBetween(state, Volumes(), from, to, false).transmittance;
}

trFCol LitScene::DirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) {
  trFCol light;
  for (const auto& sun : lights_) {
    const double cosine = Dot(normal, sun->Dir());
    if (cosine > 0) light += sun->Intensity(state, point, {}) * static_cast<float>(cosine);
  }
  return light;
}

trFCol LitScene::IndirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) {
  trFCol above, below;
  air_.SkyLight(state, point, false, above, below);
  // Half the table's doubled means, by how much of each half space the surface faces.
  const double up = 0.5 + 0.5 * Dot(normal, air_.Up(point));
  return (above * static_cast<float>(up) + below * static_cast<float>(1 - up)) * 0.5f * skyOnSurfaces_;
}

void LitScene::EnviroInAtmosphere(trRenderState& state, const trVector& point, const trVector&, trFCol& above,
                                  trFCol& below) {
  air_.SkyLight(state, point, state.CurrentRay().depth == 1, above, below);
  above *= skyInAtmosphere_;
  below *= skyInAtmosphere_;
}

bool LitScene::IntersectTris(const trScene& scene, const trVector& origin, const trVector& direction,
                             trTriHit& hit) {
  return triRays_.Intersect(scene, origin, direction, hit);
}

double LitScene::SpotSize(const trVector& point) const {
  return FootprintAt(frame_.view, frame_.edgePixels, (point - frame_.view.eye).Length());
}

}  // namespace ovhost
