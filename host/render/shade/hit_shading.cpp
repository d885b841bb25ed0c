// Locating hits, in copies and out of them, and the shading states they make.
#include "host/render/shade/hit_shading.h"

#include "host/base/tangents.h"

namespace ovhost {

PartPlacement HitShading::PlacementOf(const SurfaceHit& hit) {
  const trScene& scene = *hit.part->scene;
  if (hit.levels == 0) return {&scene.GetTransform(), &scene.GetTransformForShaders(), nullptr};
  const auto isSameCopy = [&] {
    if (lastCopy_.part != hit.part || lastCopy_.levels != hit.levels) return false;
    for (int i = 0; i < hit.levels; ++i)
      if (lastCopy_.instances[i].population != hit.instances[i].population ||
          lastCopy_.instances[i].instance != hit.instances[i].instance)
        return false;
    return true;
  };
  if (!isSameCopy()) {
    lastCopy_ = hit;
    copy_ = {};
    for (int i = 0; i < hit.levels; ++i) {
      const InstanceRef& ref = hit.instances[i];
      copy_ = copy_ * OuterFromInstance(*ref.population, ref.Get());
    }
    objectInCopy_ = copy_ * scene.GetTransform();
    shaderInCopy_ = copy_ * scene.GetTransformForShaders();
  }
  return {&objectInCopy_, &shaderInCopy_, &copy_};
}

void HitShading::Locate(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                        double footprintAngle, SurfacePoint& point) {
  point.part = hit.part;
  point.footprint = hit.distance * footprintAngle;
  point.lift = trVector();
  hit.part->Locate(hit, PlacementOf(hit), {view_.eye, origin, direction}, point);
}

void HitShading::FillState(const SurfaceHit& hit, const trVector& origin, const SurfacePoint& point,
                           trShadingInterface& si) {
  const PartPlacement placement = PlacementOf(hit);
  si.Eye() = origin + view_.eye;
  si.SmoothSize() = point.footprint;
  si.Object() = {placement.shaderToWorld, point.part->scene};
  if (hit.levels > 0) {
    const Population& population = *hit.instances[0].population;
    si.Object().particleScene = population.scene;
    si.Object().particle = population.scene->GetPParticle(hit.instances[0].Get().particle);
  }
  trRenderState::Ray& ray = si.RenderState().CurrentRay();
  ray.groupCastsShadows = point.part->scene->CastsShadows();
  ray.element = NumberOf(*point.part->scene, point.material);
  trVector across, along;
  MakeTangents(point.face, along, across);
  ray.corners[0] = point.world;
  ray.corners[1] = point.world + across * point.footprint;
  ray.corners[2] = point.world + along * point.footprint;

  point.part->FillState(hit, placement, point, si);
  si.ResetResults();
}

void HitShading::RunShader(const SurfacePoint& point, trShadingInterface& si) {
  if (!point.material || !point.material->surfaceShader) return;
  point.material->surfaceShader->ShadeTS(si);
  if (point.material->isDoubleSided || Dot(point.normal, point.face) >= 0) return;
  for (int i = 0; i < si.Bsdf().NumLobes(); ++i) {
    trLobe& lobe = si.Bsdf().Lobe(i);
    if (lobe.kind == trLobe::kDiffuseReflection) lobe.colour = trFCol();
  }
}

}  // namespace ovhost
