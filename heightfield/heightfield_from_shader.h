// A heightfield of its input's size, filled from a shader.
#pragma once

#include "heightfield/costly_operator.h"
#include "heightfield/shader_sampling.h"

/// "Generate Now".
class HeightfieldFromShader_GenerateButton : public CostlyOperatorButton {
 public:
  using CostlyOperatorButton::CostlyOperatorButton;
};

/// `heightfield_from_shader`.
class HeightfieldFromShader : public CostlyOperator {
 public:
  HeightfieldFromShader();
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute() override;

 private:
  trShaderLink shader_;
  FieldPosition position_;
  HeightfieldFromShader_GenerateButton generateButton_{this, "Generate Now"};
};
