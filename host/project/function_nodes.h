// The host's small value nodes: constants, readers of the sample, and arithmetic. Values are scalars unless a
// class says otherwise; inputs are a linked function or shader, or the constant beside the link where nothing
// is linked.
#pragma once

#include <algorithm>
#include <functional>
#include <limits>

#include "core/shader.h"

namespace ovhost {

/// A user's number in single precision; what is too large is the largest there is.
inline float ToFloat(double value) {
  constexpr double kMax = std::numeric_limits<float>::max();
  return static_cast<float>(std::clamp(value, -kMax, kMax));
}

/// The project's planet as readers of a sample see it; the plane y = 0 where there is none.
class GroundReference {
 public:
  /// Reads the planet. Main thread only, before rendering.
  void Prepare(const trBase* node);
  double Altitude(const trVector& point) const {
    return hasPlanet_ ? (point - centre_).Length() - radius_ : point.y;
  }
  /// Unit vector away from the ground.
  trVector Up(const trVector& point) const {
    return hasPlanet_ ? Normalised(point - centre_) : trVector(0, 1, 0);
  }

 private:
  bool hasPlanet_ = false;
  trVector centre_;
  double radius_ = 0;
};

/// An input of a function: a link and the constant that stands in for it.
class FunctionInput {
 public:
  void Declare(trBase* node, const char* linkName, const char* constantName, double fallback,
               const char* about = "The value that is worked on: a function or a shader.") {
    node->Param(link_, linkName, "").About(about);
    node->Param(constant_, constantName, fallback).About("Takes the input's place where nothing is linked.");
  }
  float Value(trShadingInterface& si) const {
    auto* shader = LinkedShader(link_);
    return shader ? shader->FloatValueTS(si) : ToFloat(constant_);
  }
  trFCol Colour(trShadingInterface& si) const {
    auto* shader = LinkedShader(link_);
    return shader ? shader->FColValueTS(si) : trFCol(ToFloat(constant_));
  }
  trVector Vector(trShadingInterface& si) const {
    auto* shader = LinkedShader(link_);
    return shader ? shader->VectorValueTS(si) : trVector(constant_, constant_, constant_);
  }

 private:
  trShaderLink link_;
  double constant_;
};

/// A number.
class ConstantScalar : public trFloatFunction {
 public:
  ConstantScalar() { Param(value_, "value", 1.0).About("The number that the node gives everywhere."); }
  float FloatValue(trShadingInterface&) override { return ToFloat(value_); }

 private:
  double value_;
};

/// A colour; as a number its luminance.
class ConstantColour : public trFunction {
 public:
  ConstantColour() {
    Param(colour_, "colour", trRgbLinear709(1.0f))
        .About("The colour that the node gives everywhere. As a number it is its luminance.");
  }
  float FloatValue(trShadingInterface&) override { return Luminance(colour_.ToRender()); }
  trFCol FColValue(trShadingInterface&) override { return colour_.ToRender(); }
  trVector VectorValue(trShadingInterface&) override { return {colour_.r, colour_.g, colour_.b}; }

 private:
  trManRgb colour_;
};

/// The sample's point, metres.
class GetPosition : public trVectorFunction {
 public:
  GetPosition() {
    Param(useTexturePoint_, "use_texture_point", 0)
        .About("Gives the texture point, which warps and transforms move, in place of where the surface is.");
  }
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
  GroundReference ground_;
};

/// Angle between the sample's normal and the vertical, degrees: 0 is level ground, 90 a cliff. Reads the
/// planet at StartRender.
class GetSlope : public trFloatFunction {
 public:
  long StartRender(trRenderingInterface& rendering) override;
  float FloatValue(trShadingInterface& si) override;

 private:
  GroundReference ground_;
};

/// Distance to the camera, metres.
class GetCameraDistance : public trFloatFunction {
 public:
  float FloatValue(trShadingInterface& si) override {
    return static_cast<float>((si.P() - si.RootEye()).Length());
  }
};

/// Two inputs, channel by channel. The first is always evaluated first.
template <typename Operation>
class PairFunction : public trFunction {
 public:
  explicit PairFunction(double neutral) {
    a_.Declare(this, "input_a", "constant_a", neutral, "The first value: a function or a shader.");
    b_.Declare(this, "input_b", "constant_b", neutral, "The second value: a function or a shader.");
  }
  float FloatValue(trShadingInterface& si) override {
    const float a = a_.Value(si);
    return Operation()(a, b_.Value(si));
  }
  trFCol FColValue(trShadingInterface& si) override {
    const trFCol a = a_.Colour(si);
    return Operation()(a, b_.Colour(si));
  }
  trVector VectorValue(trShadingInterface& si) override {
    const trVector a = a_.Vector(si);
    return Operation()(a, b_.Vector(si));
  }

 private:
  FunctionInput a_, b_;
};

class AddFunction : public PairFunction<std::plus<>> {
 public:
  AddFunction() : PairFunction(0) {}
};

class MultiplyFunction : public PairFunction<std::multiplies<>> {
 public:
  MultiplyFunction() : PairFunction(1) {}
};

/// From the first input to the second by the third, which is clamped to 0 to 1.
class MixFunction : public trFunction {
 public:
  MixFunction();
  float FloatValue(trShadingInterface& si) override;
  trFCol FColValue(trShadingInterface& si) override;
  trVector VectorValue(trShadingInterface& si) override;

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
