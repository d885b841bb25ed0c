// The data side of generators' previews.
#include "core/scene_maker.h"

void juObjectGenerator::OnParamChanged(long index, trBase* who) {
  juObjectGeneratorOrReader::OnParamChanged(index, who);
  hasBox_ = false;
}

void juObjectGenerator::OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who) {
  juObjectGeneratorOrReader::OnDependencyParamChanged(changed, index, link, who);
  hasBox_ = false;
}

trBoundingBox juObjectGenerator::BoundingBoxL() {
  if (!hasBox_) {
    trScene scene;
    scene.SetTransform(Transform());
    box_ = GenerateMesh(scene, 0) ? scene.BoundingBoxR() : trBoundingBox();
    hasBox_ = true;
  }
  return box_;
}

trTransform<double> juObjectGenerator::Transform() {
  trTransform<double> transform;
  SetTransformFromParams(transform, nullptr, nullptr, translate_, rotate_, scale_);
  return transform;
}

void juObjectGenerator::MoveHandlePositionT(const trVector& delta) {
  SetParam("translate", translate_ + delta, trWhoUserIndirect);
}

void juObjectGenerator::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("rotate", rotate_ + deltaDegrees, trWhoUserIndirect);
}

void juObjectGenerator::MoveHandleScaleT(const trVector& factor) {
  SetParam("scale", scale_ * factor, trWhoUserIndirect);
}
