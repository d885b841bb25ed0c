// Displacing points of a scene's surfaces before the render.
#pragma once

#include "core/scene.h"
#include "host/render/dice/dicer.h"

namespace ovhost {

/// A thread's shading state for displacing. Per-thread state.
class DisplacementSampler {
 public:
  DisplacementSampler(const trScene& scene, const DiceSettings& settings, trRenderServices& services);

  /// A point of a base mesh, object space, that the material's geometry shader places on the surface. Leaves
  /// the displaced sample in the state.
  trShadingInterface& OnGeometry(const trMaterial& material, const trVector& base);
  /// A point of a triangle, object space, by the normal and texture point that it has there.
  trShadingInterface& OnTriangle(const trMaterial& material, const trVector& base, const trVector& normal,
                                 const trVector& texture);

 private:
  /// Of displacement: depends on the undisplaced point alone, so whatever shares it gives it the same one.
  double FootprintOf(const trVector& point) const;
  /// The point stays where it was if displacement leads nowhere.
  trShadingInterface& Finished(const trVector& world);

  const trScene& scene_;
  const trTransform<double>& toWorld_;
  const DiceSettings& settings_;
  trShadingInterface si_;
  trRenderState state_;
};

}  // namespace ovhost
