// A cloud layer as a medium in which light is scattered more than once.
#include <algorithm>
#include <cmath>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"
#include "atmosphere/cloud_scatter.h"

namespace {

constexpr int kMostCells = 32768;
/// Edges of a cell of light in voxels: light in a cloud is smoother than the cloud.
constexpr double kVoxelsPerLight = 2;
/// Voxels for each cell of light from around.
constexpr double kVoxelsPerAmbient = 4096;

int CountOf(double cells) { return static_cast<int>(std::clamp(std::ceil(cells), 1.0, double{kMostCells})); }

}  // namespace

void CloudLayerV2::PrepareScatter(trRenderingInterface& rendering) {
  CloudVoxels& voxels = *voxels_;
  voxels.hasScatter = false;
  if (!layout_.usesVoxelScatter) return;
  voxels.lighting.Cleanup();
  voxels.aniso.Cleanup();
  if (!NeedsVoxels() || voxels.density.IsEmpty()) return;
  LayLimbProjector();
  const trVector& resolution = settings_.voxelBufferResolution;
  const bool hasLighting = voxels.lighting.InitVoxelBuffer(
      &voxels.limbProjector, CountOf(resolution.x / kVoxelsPerLight), CountOf(resolution.y / kVoxelsPerLight),
      CountOf(resolution.z / kVoxelsPerLight), 1, Name() + ".lightingVoxelCache");
  int nx, ny, nz;
  const double millions = std::min(1e6, settings_.millionsOfVoxels);
  trVoxelBuffer::GetIdealSizeFromBoundingBox(CloudBoundingBox(), millions * 1e6 / kVoxelsPerAmbient, nx, ny,
                                             nz);
  const bool hasAmbient =
      voxels.aniso.InitVoxelBuffer(&voxels.limbProjector, std::max(nx, 3), std::max(ny, 3), std::max(nz, 3),
                                   1, Name() + ".indirectLightingVoxelCache");
  if (!hasLighting || !hasAmbient) return;
  medium_ = std::make_unique<CloudMedium>(*this, rendering.RenderState());
  voxels.scatter.Init(voxels.limbProjector, static_cast<int>(maxScatterSteps_), *medium_, voxels.lighting,
                      voxels.aniso);
  voxels.hasScatter = true;
}

CloudMedium::CloudMedium(CloudLayerV2& cloud, trRenderState& state) : cloud_(cloud) {
  // The brightest light is the one whose paths are followed. No shadows: where they fall isn't known yet.
  const trRayGuard guard(state);
  trRenderState::Ray& ray = state.CurrentRay();
  ray = trRenderState::Ray();
  ray.tracesShadows = ray.modulatesLight = false;
  const trVector& at = cloud.settings_.localSphereCentre;
  float brightest = 0;
  for (int i = 0; i < state.NumLights(); ++i) {
    const trLightState* light = state.Light(i);
    if (light->IsEnviroLight()) continue;
    const float brightness = Luminance(light->Intensity(state, at, {}));
    if (mainLight_ >= 0 && !(brightness > brightest)) continue;
    brightest = brightness;
    mainLight_ = i;
    towardsMainLight_ = light->Dir(at);
  }
}

trFCol CloudMedium::Extinction(trRenderState& state, const trVector& point) {
  const trF4Col found = cloud_.VoxelLookup(state, point, 1, false);
  return trFCol(found.r, found.g, found.b) * cloud_.derived_.sigma;
}

float CloudMedium::PhaseFunction(double cosAngle) const { return cloud_.PhaseFunction(cosAngle); }

double CloudMedium::GreatestExtinction() const { return cloud_.GreatestExtinction(); }

trFCol CloudMedium::Albedo() const {
  trFCol albedo;
  for (int c = 0; c < 3; ++c) albedo[c] = std::clamp(4.0f * cloud_.derived_.cloudColour[c], 0.0f, 1.0f);
  return albedo;
}

trFCol CloudMedium::LightAt(trRenderState& state, const trLightState& light, const trVector& point,
                            float densityScale) const {
  CloudThread& thread = cloud_.Thread(state);
  const CloudNesting nesting(state, thread);
  trRenderState::Ray& ray = state.CurrentRay();
  ray.depth = 1;
  ray.quality = 1;
  ray.tracesShadows = cloud_.settings_.enableRayTracedShadows != 0;
  thread.densityScale = densityScale;
  return light.Intensity(state, point, {}) * cloud_.TerminatorDarkness(light, point);
}

trFCol CloudMedium::DirectLight(trRenderState& state, const trVector& point) {
  trFCol sum;
  for (int i = 0; i < state.NumLights(); ++i)
    if (const trLightState* light = state.Light(i); !light->IsEnviroLight())
      sum += LightAt(state, *light, point, 1.0f);
  return sum;
}

bool CloudMedium::LightOutside(trRenderState& state, const trVector& point, trFCol& light) {
  light = trFCol();
  if (mainLight_ < 0 || mainLight_ >= state.NumLights()) return true;
  light = LightAt(state, *state.Light(mainLight_), point, 0.0f);
  return true;
}

bool CloudMedium::BackgroundOutside(trRenderState& state, const trVector& point, const trVector& direction,
                                    trFCol& radiance) {
  const CloudNesting nesting(state, cloud_.Thread(state));
  cloud_.Thread(state).isHidden = true;
  if (trVoxelLightingSystem* const lighting = state.VoxelLightingSystem()) {
    radiance = lighting->BackgroundFunction(state, point, direction);
    return true;
  }
  // No one to ask: the sky's light from above and from below, as if there were no cloud at all.
  state.CurrentRay().modulatesLight = false;
  trFCol above, below;
  state.EnviroIlluminationInAtmosphereAniso(point, {}, above, below);
  const trVector up = Normalised(point - cloud_.settings_.centre);
  radiance = (Dot(direction, up) >= 0 ? above : below) * 0.5f;
  return true;
}

trFCol CloudMedium::AverageBackground(trRenderState& state, const trVector& point) {
  // The 26 directions to a cube's corners, edges and faces.
  trFCol sum;
  for (int i = 0; i < 27; ++i) {
    const trVector towards(i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1);
    if (towards == trVector()) continue;
    const trVector direction = Normalised(towards);
    trFCol radiance;
    BackgroundOutside(state, point, direction, radiance);
    sum += radiance * cloud_.TransmittanceOut(state, point, direction);
  }
  return sum * 0.03846154f;
}

trFCol CloudLayerV2::TransmittanceOut(trRenderState& state, const trVector& point,
                                      const trVector& direction) {
  CloudThread& thread = Thread(state);
  const CloudNesting nesting(state, thread);
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = point;
  ray.end = point + direction * (2 * derived_.topRadius);
  ray.depth = 2;
  ray.wantsColour = false;
  ray.quality = 1;
  thread.densityScale = derived_.propagationDecay;
  return MarchAlone(state);
}
