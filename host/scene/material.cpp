// Materials and geometry groups.
#include "core/scene.h"

long trMaterial::GeometryDisplace(trRenderState& state) const {
  trShadingInterface& si = state.Shading();
  if (geometryShader && !geometryShader->DisplaceTS(si)) return 0;
  return surfaceShader ? surfaceShader->DisplaceTS(si) : 1;
}

bool trGeomGroup::CastsShadows() const { return scene_->CastsShadows(); }
bool trGeomGroup::IsVisibleInReflections() const { return scene_->IsVisibleInReflections(); }
bool trGeomGroup::IsVisibleOrHoldoutInRayTracer() const { return scene_->IsVisibleOrHoldout(); }
