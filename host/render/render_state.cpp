// Nested shader calls of a render state.
#include "core/render_state.h"

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
