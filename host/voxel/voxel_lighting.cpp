// Background light at points of the air, straight and through a cache.
#include <cmath>

#include "core/voxel.h"

namespace {

/// A direction evenly spread over the sphere, from two unit draws.
trVector SphereDirection(double u, double v) {
  const double z = 1.0 - 2.0 * u, r = std::sqrt(std::max(0.0, 1.0 - z * z));
  const double angle = 6.283185307179586 * v;
  return {r * std::cos(angle), r * std::sin(angle), z};
}

/// One sample of a cell: the background from a direction that the seed alone chooses. The state's own draws
/// go on as if nothing had been looked up, since another thread may have done the work.
bool FillFromBackground(void* owner, trRenderState& state, const trVoxelBuffer&, const trVector& world,
                        unsigned seed, trFCol& value) {
  if (state.IsPausingOrAborting()) return false;
  const trVoxelLightingSystem::LookupScope scope;
  trRandomStream& stream = state.Shading().Random();
  const trRandomStream saved = stream;
  stream = {seed, 0};
  const double u = stream.Next(), v = stream.Next();
  value = static_cast<trVoxelLightingSystem*>(owner)->BackgroundFunction(state, world, SphereDirection(u, v));
  stream = saved;
  return true;
}

}  // namespace

unsigned char& trVoxelLightingSystem::sIsDuringLookup() {
  thread_local unsigned char during = 0;
  return during;
}

trFCol trVoxelLightingSystem::LookupBackground(trRenderState& state, const trVector& point,
                                               const trVector& direction) {
  if (sIsDuringLookup() || state.CurrentRay().depth > DepthLimit()) return {};
  const LookupScope scope;
  return BackgroundFunction(state, point, direction);
}

trFCol trVoxelLightingSystem::LookupIsotropicBackgroundProgressive(trVoxelCache<trFCol>& cache,
                                                                   trRenderState& state,
                                                                   const trVector& point) {
  trFCol mean;
  trVector voxel;
  if (!cache.MapWorldToVoxel(point, voxel)) return mean;
  cache.LookupLinear(mean, voxel, 1, FillFromBackground, this, state, SamplesPerCell());
  return mean;
}

trFCol trVoxelLightingSystem::OneCachelessBackgroundSample(trRenderState& state, const trVector& point) {
  const double u = state.Random(), v = state.Random();
  return BackgroundFunction(state, point, SphereDirection(u, v));
}
