// Erosion by bilinear drops, on one thread repeatably or on many.
#pragma once

#include "heightfield/costly_operator.h"
#include "heightfield/erosion_params.h"

/// "Erode Now".
class HeightfieldErodeV3_CalculateButton : public CostlyOperatorButton {
 public:
  using CostlyOperatorButton::CostlyOperatorButton;
};

/// `heightfield_erode_v3`.
class HeightfieldErodeV3 : public CostlyOperator {
 public:
  HeightfieldErodeV3();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute() override;

 private:
  unsigned char multiThread_, fixGradient_;
  long borderFlow_;
  trIntHint borderFlowHint_;
  trHeading weightHeading_, characterHeading_;
  ErosionParams params_;
  HeightfieldErodeV3_CalculateButton calculateButton_{this, "Erode Now"};
};
