// The value nodes' arithmetic.
#include "host/project/function_nodes.h"

#include <algorithm>

#include "core/guarded.h"
#include "core/project.h"

namespace ovhost {

void GroundReference::Prepare(const trBase* node) {
  hasPlanet_ = false;
  const juProject* project = juProject::Of(node);
  const trBase* object = project ? project->PActiveShadableObject() : nullptr;
  if (object && object->IsTrue("is_planet"))
    hasPlanet_ = object->GetParam("centre", centre_) && object->GetParam("radius", radius_);
}

long GetAltitude::StartRender(trRenderingInterface& rendering) {
  ground_.Prepare(this);
  return trFloatFunction::StartRender(rendering);
}

float GetAltitude::FloatValue(trShadingInterface& si) { return ToFloat(ground_.Altitude(si.P())); }

long GetSlope::StartRender(trRenderingInterface& rendering) {
  ground_.Prepare(this);
  return trFloatFunction::StartRender(rendering);
}

float GetSlope::FloatValue(trShadingInterface& si) {
  const double cosine = std::clamp(Dot(Normalised(si.N()), ground_.Up(si.P())), -1.0, 1.0);
  return static_cast<float>(std::acos(cosine) * kRadiansToDegrees);
}

MixFunction::MixFunction() {
  a_.Declare(this, "input_a", "constant_a", 0, "Value of the result where the mix is 0.");
  b_.Declare(this, "input_b", "constant_b", 1, "Value of the result where the mix is 1.");
  mix_.Declare(this, "mix", "constant_mix", 0.5,
               "How far the result is from the first value to the second, 0 to 1: a mask, for instance.");
}

float MixFunction::FloatValue(trShadingInterface& si) {
  const float a = a_.Value(si), t = std::clamp(mix_.Value(si), 0.0f, 1.0f);
  return a + (b_.Value(si) - a) * t;
}

trFCol MixFunction::FColValue(trShadingInterface& si) {
  const trFCol a = a_.Colour(si);
  const float t = std::clamp(mix_.Value(si), 0.0f, 1.0f);
  return a + (b_.Colour(si) - a) * t;
}

trVector MixFunction::VectorValue(trShadingInterface& si) {
  const trVector a = a_.Vector(si);
  const double t = std::clamp(mix_.Value(si), 0.0f, 1.0f);
  return a + (b_.Vector(si) - a) * t;
}

ClampFunction::ClampFunction() {
  input_.Declare(this, "input", "constant", 0);
  Param(low_, "low", 0.0)
      .About("Least value of the result. With bounds the wrong way round the two change places.");
  Param(high_, "high", 1.0).About("Greatest value of the result.");
}

float ClampFunction::FloatValue(trShadingInterface& si) {
  return ToFloat(
      std::clamp(static_cast<double>(input_.Value(si)), std::min(low_, high_), std::max(low_, high_)));
}

SmoothStepFunction::SmoothStepFunction() {
  input_.Declare(this, "input", "constant", 0);
  Param(edgeLow_, "edge_low", 0.0).About("Input up to which the result is 0.");
  Param(edgeHigh_, "edge_high", 1.0)
      .About("Input from which on the result is 1. Below the low edge, the step falls in place of rising.");
}

float SmoothStepFunction::FloatValue(trShadingInterface& si) {
  return static_cast<float>(SmoothStep(GuardedDivide(input_.Value(si) - edgeLow_, edgeHigh_ - edgeLow_)));
}

}  // namespace ovhost
