// Materials and geometry groups.
#include "core/scene.h"

long trMaterial::GeometryPlace(trRenderState& state) const {
  trShadingInterface& si = state.Shading();
  if (!geometryShader) return 1;
  if (!geometryShader->DisplaceTS(si)) return 0;
  // The surface starts here, not at the mesh that it was made out of.
  si.Ptg() = si.Pt();
  si.Ph() = si.P();
  return 1;
}

long trMaterial::SurfaceDisplace(trRenderState& state) const {
  return surfaceShader ? surfaceShader->DisplaceTS(state.Shading()) : 1;
}

bool trGeomGroup::CastsShadows() const { return scene_->CastsShadows(); }
bool trGeomGroup::IsVisibleInReflections() const { return scene_->IsVisibleInReflections(); }
bool trGeomGroup::IsVisibleOrHoldoutInRayTracer() const { return scene_->IsVisibleOrHoldout(); }
