// Nested shader calls of a render state.
#include "core/render_state.h"

#include <algorithm>

#include "core/atmosphere.h"
#include "core/idioms.h"
#include "core/scene.h"

namespace {

void MoveSample(trShadingInterface& si, bool moveTexture, const trVector* point, const trVector* normal) {
  if (point) {
    si.P() = si.Pg() = *point;
    if (moveTexture) si.Pt() = si.Ptg() = *point;
  }
  if (normal) si.N() = si.Ng() = si.Nt() = *normal;
}

}  // namespace

trRenderState::trRenderState(trRenderServices& services, trShadingInterface& shading)
    : services_(services), shading_(shading) {
  shading_.SetRenderState(this);
}

trRenderState::~trRenderState() = default;

trIntegratorStore& trRenderState::Integrators() {
  if (!integrators_) integrators_ = std::make_unique<trIntegratorStore>();
  return *integrators_;
}

long trRenderState::PushTri(const trScene& scene, long tri) {
  const trTri* entry = scene.GetPTri(tri);
  trRenderTri made;
  if (!entry || scene.GetPointVecs(entry->point, made.point, 3) != 3) return 0;
  made.material = scene.GetPMaterial(entry->material);
  if (scene.GetTexVecs(entry->texVert, made.texture, 3) != 3)
    std::copy(made.point, made.point + 3, made.texture);
  const bool isSmooth =
      (!made.material || made.material->useNormals) && scene.GetNormals(entry->normal, made.normal, 3) == 3;
  if (!isSmooth) {
    const trVector flat = Cross(made.point[2] - made.point[0], made.point[1] - made.point[0]);
    std::fill(made.normal, made.normal + 3, flat);
  }
  const trTransform<double>& transform = scene.GetTransform();
  for (trVector& point : made.point) point = transform.Point(point);
  for (trVector& normal : made.normal) normal = transform.Normal(normal);
  return PushRenderTri(made);
}

long trRenderState::PushRenderTri(const trRenderTri& tri) {
  double sum = 0;
  for (int i = 0; i < 3; ++i)
    sum += tri.point[i].LengthSquared() + tri.normal[i].LengthSquared() + tri.texture[i].LengthSquared();
  return std::isfinite(sum) && triSink_ && triSink_->Take(tri) ? 1 : 0;
}

trVector trRenderState::CallDisplacement(trShader* shader, bool moveTexture, const trVector* point,
                                         const trVector* normal) {
  if (!shader) return point ? *point : shading_.P();
  const trShadingGuard guard(shading_);
  MoveSample(shading_, moveTexture, point, normal);
  shader->DisplaceTS(shading_);
  return shading_.P();
}

trVector trRenderState::CallDisplacementOnPlane(trShader* shader, bool moveTexture, const trVector* point,
                                                const trVector* normal) {
  const trVector from = point ? *point : shading_.P();
  const trVector along = Normalised(normal ? *normal : shading_.N());
  const trVector moved = CallDisplacement(shader, moveTexture, point, normal);
  return from + along * Dot(moved - from, along);
}

trFCol trRenderState::CallShaderCd(trShader* shader, bool moveTexture, const trVector* point,
                                   const trVector* normal) {
  if (!shader) return {};
  const trShadingGuard guard(shading_);
  MoveSample(shading_, moveTexture, point, normal);
  return shader->FColValueTS(shading_);
}

void trRenderState::ApplyTintToCd(trFCol& colour) const {
  const trShadingObject& object = shading_.Object();
  if (!object.particle || !object.particleScene) return;
  if (const trParticleInflator* inflator = object.particleScene->GetParticleInflator())
    inflator->ApplyTintToCd(*object.particle, colour);
}

void trRenderState::ApplyTintToSurfEmit(trFCol& colour) const {
  const trShadingObject& object = shading_.Object();
  if (!object.particle || !object.particleScene) return;
  if (const trParticleInflator* inflator = object.particleScene->GetParticleInflator())
    inflator->ApplyTintToSurfEmit(*object.particle, colour);
}
