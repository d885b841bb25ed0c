// Particles whose inflators make every triangle themselves.
#include "host/render/dice/inflate.h"

#include <algorithm>
#include <limits>

#include "host/base/sampler.h"

namespace ovhost {
namespace {

/// Puts triangles into a scene, points and all.
class SceneFiller final : public trTriSink {
 public:
  explicit SceneFiller(trScene& scene) : scene_(scene) {}
  void SetParticle(long particle) { particle_ = static_cast<std::int32_t>(particle); }

  bool Take(const trRenderTri& made) override {
    trTri tri;
    tri.material = MaterialIndex(made.material);
    tri.part = particle_;
    for (int i = 0; i < 3; ++i) {
      tri.point[i] = static_cast<std::int32_t>(scene_.AddPoint({made.point[i]}));
      tri.normal[i] = static_cast<std::int32_t>(scene_.AddNormal({made.normal[i]}));
      tri.texVert[i] = static_cast<std::int32_t>(scene_.AddTexVert({made.texture[i]}));
    }
    return scene_.AddTri(tri) != 0;
  }

 private:
  std::int32_t MaterialIndex(const trMaterial* material) {
    const auto known = std::find(materials_.begin(), materials_.end(), material);
    if (known != materials_.end()) return static_cast<std::int32_t>(known - materials_.begin()) + 1;
    materials_.push_back(material);
    trMaterial copy = material ? *material : trMaterial();
    copy.geometryShader = nullptr;  // the surface is already made
    return static_cast<std::int32_t>(scene_.AddMaterial(copy));
  }

  trScene& scene_;
  std::int32_t particle_ = 0;
  std::vector<const trMaterial*> materials_;
};

}  // namespace

std::unique_ptr<trScene> InflateParticles(const trScene& particles, const trView& view, std::uint64_t seed) {
  auto made = std::make_unique<trScene>();
  made->Init();
  made->SetAllowsTriSubdivision(false);
  made->SetCastsShadows(particles.CastsShadows());
  made->SetIsVisibleInReflections(particles.IsVisibleInReflections());
  made->SetVisibilityMode(particles.VisibilityMode());

  SceneFiller filler(*made);
  trNoRenderServices services;
  trShadingInterface si;
  trRenderState state(services, si);
  si.SetMainView(&view);
  si.Eye() = si.RootEye() = view.eye;
  state.SetTriSink(&filler);
  trParticleInflator& inflator = *particles.GetParticleInflator();
  for (long i = 1; i <= particles.NumParticles(); ++i) {
    const trParticle& particle = *particles.GetPParticle(i);
    const std::shared_ptr<trScene> scene = inflator.InstanceScene(inflator.InstanceSceneIndex(particle));
    const long end = scene ? scene->NumSortedElements() : std::numeric_limits<long>::max();
    si.Random() = {MixBits64(seed + static_cast<std::uint64_t>(i))};
    filler.SetParticle(i);
    // An element that doesn't move the cursor on would be the last for ever.
    for (long cursor = 0, before = -1; cursor < end && cursor > before;) {
      before = cursor;
      if (!inflator.InflateInstanceElement(state, particle, cursor)) break;
    }
  }
  made->PrepForRender();
  return made;
}

}  // namespace ovhost
