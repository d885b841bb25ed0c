// Running displacement.
#include "host/render/dice/displacement_sampler.h"

#include "host/base/parallel.h"
#include "host/render/dice/patch_edges.h"

namespace ovhost {
namespace {

/// Filter footprint of displacement, as a share of a micropolygon's longest edge. Fractals fade their last
/// octaves out well before the footprint, and edges are shorter than the longest.
constexpr double kFootprint = 0.5;

}  // namespace

DisplacementSampler::DisplacementSampler(const trScene& scene, const DiceSettings& settings,
                                         trRenderServices& services)
    : scene_(scene), toWorld_(scene.GetTransform()), settings_(settings), state_(services, si_) {
  si_.SetFrame(static_cast<float>(settings.frame));
  si_.SetMainView(&settings.view);
  si_.SetThread(ThreadSlot());
  si_.Eye() = si_.RootEye() = settings.view.eye;
  si_.Object() = {&scene.GetTransformForShaders(), &scene};
  si_.SetWants(0);
}

double DisplacementSampler::FootprintOf(const trVector& point) const {
  if (settings_.copiedEdge > 0) return kFootprint * settings_.copiedEdge;
  return kFootprint *
         FootprintAt(settings_.view, settings_.edgePixels, (point - settings_.view.eye).Length());
}

trShadingInterface& DisplacementSampler::Finished(const trVector& world) {
  if (!std::isfinite(si_.P().LengthSquared())) si_.P() = world;
  return si_;
}

trShadingInterface& DisplacementSampler::OnGeometry(const trMaterial& material, const trVector& base) {
  const trVector world = toWorld_.Point(base);
  si_.SetSample(world, Normalised(world - toWorld_.forward.Translation()));
  si_.Random() = {KeyOf(base) ^ settings_.seed};
  si_.SmoothSize() = FootprintOf(world);
  state_.CurrentRay().element = NumberOf(scene_, &material);
  if (material.GeometryPlace(state_)) {
    si_.SmoothSize() = FootprintOf(si_.P());
    material.SurfaceDisplace(state_);
  }
  return Finished(world);
}

trShadingInterface& DisplacementSampler::OnTriangle(const trMaterial& material, const trVector& base,
                                                    const trVector& normal, const trVector& texture) {
  const trVector world = toWorld_.Point(base);
  si_.SetSample(world, toWorld_.Normal(normal));
  si_.Pt() = si_.Ptg() = texture;
  si_.Random() = {KeyOf(base) ^ settings_.seed};
  si_.SmoothSize() = FootprintOf(world);
  state_.CurrentRay().element = NumberOf(scene_, &material);
  material.surfaceShader->DisplaceTS(si_);
  return Finished(world);
}

}  // namespace ovhost
