// The host's small value nodes: constants, readers of the sample, and arithmetic. Values are scalars unless a
// class says otherwise; inputs are a linked function or shader, or the constant beside the link where nothing
// is linked.
#pragma once

#include "core/shader.h"

namespace ovhost {

/// An input of a function: a link and the constant that stands in for it.
class FunctionInput {
 public:
  void Declare(trBase* node, const char* linkName, const char* constantName, double fallback) {
    node->Param(link_, linkName, "");
    node->Param(constant_, constantName, fallback);
  }
  float Value(trShadingInterface& si) const {
    auto* shader = static_cast<trShader*>(link_.LinkedNode(true));
    return shader ? shader->FloatValueTS(si) : static_cast<float>(constant_);
  }
  trFCol Colour(trShadingInterface& si) const {
    auto* shader = static_cast<trShader*>(link_.LinkedNode(true));
    return shader ? shader->FColValueTS(si) : trFCol(static_cast<float>(constant_));
  }

 private:
  trShaderLink link_;
  double constant_ = 0;
};

/// A number.
class ConstantScalar : public trFloatFunction {
 public:
  ConstantScalar() { Param(value_, "value", 1.0); }
  float FloatValue(trShadingInterface&) override { return static_cast<float>(value_); }

 private:
  double value_;
};

/// A colour; as a number its luminance.
class ConstantColour : public trFunction {
 public:
  ConstantColour() { Param(colour_, "colour", trRgbLinear709(1.0f)); }
  float FloatValue(trShadingInterface&) override { return Luminance(colour_.ToRender()); }
  trFCol FColValue(trShadingInterface&) override { return colour_.ToRender(); }
  trVector VectorValue(trShadingInterface&) override { return {colour_.r, colour_.g, colour_.b}; }

 private:
  trManRgb colour_;
};

/// The sample's point, metres.
class GetPosition : public trVectorFunction {
 public:
  GetPosition() { Param(useTexturePoint_, "use_texture_point", 0); }
  trVector VectorValue(trShadingInterface& si) override { return useTexturePoint_ ? si.Pt() : si.P(); }

 private:
  unsigned char useTexturePoint_;
};

/// The sample's normal, unit.
class GetNormal : public trVectorFunction {
 public:
  trVector VectorValue(trShadingInterface& si) override { return Normalised(si.N()); }
};

/// Height over the project's planet, metres; over the plane y = 0 where there is none. Reads the planet at
/// StartRender.
class GetAltitude : public trFloatFunction {
 public:
  long StartRender(trRenderingInterface& rendering) override;
  float FloatValue(trShadingInterface& si) override;

 private:
  bool hasPlanet_ = false;
  trVector centre_;
  double radius_ = 0;
};

/// Angle between the sample's normal and the undisplaced surface's, degrees: 0 is level ground.
class GetSlope : public trFloatFunction {
 public:
  float FloatValue(trShadingInterface& si) override;
};

/// Distance to the camera, metres.
class GetCameraDistance : public trFloatFunction {
 public:
  float FloatValue(trShadingInterface& si) override {
    return static_cast<float>((si.P() - si.RootEye()).Length());
  }
};

/// Two inputs, channel by channel.
class AddFunction : public trFunction {
 public:
  AddFunction();
  float FloatValue(trShadingInterface& si) override { return a_.Value(si) + b_.Value(si); }
  trFCol FColValue(trShadingInterface& si) override { return a_.Colour(si) + b_.Colour(si); }

 private:
  FunctionInput a_, b_;
};

class MultiplyFunction : public trFunction {
 public:
  MultiplyFunction();
  float FloatValue(trShadingInterface& si) override { return a_.Value(si) * b_.Value(si); }
  trFCol FColValue(trShadingInterface& si) override { return a_.Colour(si) * b_.Colour(si); }

 private:
  FunctionInput a_, b_;
};

/// From the first input to the second by the third, which is clamped to 0 to 1.
class MixFunction : public trFunction {
 public:
  MixFunction();
  float FloatValue(trShadingInterface& si) override;
  trFCol FColValue(trShadingInterface& si) override;

 private:
  FunctionInput a_, b_, mix_;
};

/// The input between two bounds; bounds the wrong way round change places.
class ClampFunction : public trFloatFunction {
 public:
  ClampFunction();
  float FloatValue(trShadingInterface& si) override;

 private:
  FunctionInput input_;
  double low_, high_;
};

/// 0 below `edge_low`, 1 above `edge_high`, the cubic between; the other way round where the edges are.
class SmoothStepFunction : public trFloatFunction {
 public:
  SmoothStepFunction();
  float FloatValue(trShadingInterface& si) override;

 private:
  FunctionInput input_;
  double edgeLow_, edgeHigh_;
};

}  // namespace ovhost
