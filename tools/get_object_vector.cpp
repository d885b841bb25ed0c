// get_object_vector.
#include "tools/get_object_vector.h"

#include <algorithm>
#include <cmath>

#include "core/idioms.h"
#include "core/scene_maker.h"

namespace {

/// The angles, in degrees, by which turns about X, then Y, then Z make the transform's turn.
trVector RotationOf(const trTransform<double>& placement) {
  trVector axis[3];
  for (int i = 0; i < 3; ++i) {
    trVector unit;
    unit[i] = 1;
    axis[i] = Normalised(placement.Direction(unit));
  }
  const double y = std::asin(std::clamp(-axis[0].z, -1.0, 1.0));
  // Looking straight along the vertical of Y, turns about X and Z are one: X has it all.
  if (std::fabs(axis[0].z) > 1 - 1e-12)
    return trVector(std::atan2(-axis[2].y, axis[1].y), y, 0) * kRadiansToDegrees;
  return trVector(std::atan2(axis[1].z, axis[2].z), y, std::atan2(axis[0].y, axis[0].x)) * kRadiansToDegrees;
}

trVector ScaleOf(const trTransform<double>& placement) {
  return {placement.Direction({1, 0, 0}).Length(), placement.Direction({0, 1, 0}).Length(),
          placement.Direction({0, 0, 1}).Length()};
}

/// The first of the parameters named that `object` has, as a vector; a number counts for all axes.
trVector ParamOf(const trBase& object, std::initializer_list<const char*> names, const trVector& otherwise) {
  for (const char* name : names) {
    trVector vector;
    double number;
    if (name && *name && object.GetParam(name, vector)) return vector;
    if (name && *name && object.GetParam(name, number)) return {number, number, number};
  }
  return otherwise;
}

}  // namespace

GetInstanceVector::GetInstanceVector() {
  SetMenu(vectorHint_, this,
          {{"Position", kPosition},
           {"Rotation", kRotation},
           {"Scale", kScale},
           {"Size of bounding box", kBoundingSize}});
  Param(vector_, "vector", kPosition, &vectorHint_)
      .About(
          "What is told: position (metres), rotation (degrees about X, then Y, then Z), scale, or size of "
          "the bounding box (metres).");
  Param(object_, "object", "")
      .Display("Object (none for the one being shaded)")
      .About(
          "Object that is asked, once at the start of a render. Without one it is what is being shaded: each "
          "copy of a population for itself.");
}

long GetInstanceVector::StartRender(trRenderingInterface& rendering) {
  if (object_.LinkedNode(true)) linked_ = OfLinkedObject();
  return trVectorFunction::StartRender(rendering);
}

trVector GetInstanceVector::OfLinkedObject() const {
  trBase& object = *object_.LinkedNode(true);
  const auto* parts = dynamic_cast<const juSubSceneMaker*>(&object);
  switch (vector_) {
    case kRotation:
      return ParamOf(object, {parts ? parts->RotationParam() : "", "rotation", "rotate"}, {});
    case kScale:
      return ParamOf(object, {"scale"}, {1, 1, 1});
    case kBoundingSize: {
      auto* maker = dynamic_cast<trSceneMaker*>(&object);
      trScene scene;
      if (!maker || !maker->Make(scene, trSceneMaker::kWithoutPopulating)) return {};
      scene.PrepForRender();
      return scene.BoundingBoxT().Size();
    }
    default:
      return ParamOf(object, {parts ? parts->PositionParam() : "", "position", "centre"}, {});
  }
}

trVector GetInstanceVector::OfShaded(trShadingInterface& si) const {
  const trShadingObject& object = si.Object();
  if (!object.scene)
    return vector_ == kPosition ? si.P() : vector_ == kScale ? trVector(1, 1, 1) : trVector();
  const trParticleInflator* const inflator =
      object.particle && object.particleScene ? object.particleScene->GetParticleInflator() : nullptr;
  if (vector_ == kBoundingSize)
    return inflator ? inflator->InstanceBoundingBox(*object.particle).Size()
                    : object.scene->BoundingBoxT().Size();
  const trTransform<double>& own = object.scene->GetTransform();
  const trTransform<double> placement = inflator ? inflator->InstanceTransform(*object.particle) * own : own;
  if (vector_ == kRotation) return RotationOf(placement);
  if (vector_ == kScale) return ScaleOf(placement);
  return placement.forward.Translation();
}

trVector GetInstanceVector::VectorValue(trShadingInterface& si) {
  return object_.LinkedNode(true) ? linked_ : OfShaded(si);
}
