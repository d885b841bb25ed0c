// All volumes along a ray.
#include "host/render/air/air_march.h"

#include <bit>

#include "host/base/sampler.h"

namespace ovhost {

std::uint64_t KeyOfPoint(const trVector& point) {
  std::uint64_t key = 0;
  for (int i = 0; i < 3; ++i) key = MixBits64(key + std::bit_cast<std::uint64_t>(point[i]));
  return key;
}

void PutInHand(trRenderState& state, const AirRay& ray) {
  trRenderState::Ray& inHand = state.CurrentRay();
  inHand = trRenderState::Ray();
  inHand.origin = ray.origin;
  inHand.end = ray.origin + ray.direction * ray.distance;
  inHand.depth = ray.depth;
  inHand.quality = ray.isSharp ? 1.0 : 0.0;
  inHand.pixelAngularSize = ray.pixelAngle;
  inHand.tracesShadows = ray.tracesShadows;
  inHand.modulatesLight = ray.modulatesLight;
  inHand.filtersSky = ray.filtersSky;
  inHand.limitsEnviro = ray.limitsEnviro;
}

trAtomicIntegrator::Result MarchAir(trRenderState& state, const std::vector<trAtmosShader*>& volumes,
                                    const AirRay& ray, std::uint64_t& samples, AirRecord* record) {
  if (record) record->Clear();
  if (volumes.empty()) return {};
  PutInHand(state, ray);
  const trIntegratorLoan integrator(state);
  const trAtomicIntegrator::Result result = integrator->Integrate(state, volumes);
  samples += integrator->NumSamples();
  if (record) record->Take(*integrator, result, ray.distance);
  return result;
}

trAtomicIntegrator::Result MarchBetween(trRenderState& state, const std::vector<trAtmosShader*>& volumes,
                                        const trVector& from, const trVector& to, bool wantsColour) {
  if (volumes.empty()) return {};
  const trRayGuard guard(state);
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = from;
  ray.end = to;
  ray.depth = guard.saved.depth + 1;
  ray.wantsColour = wantsColour;
  const trIntegratorLoan integrator(state);
  return integrator->Integrate(state, volumes);
}

}  // namespace ovhost
