// Older erosion by drops on whole points: the second version, and the experiment before it.
#pragma once

#include "heightfield/costly_operator.h"
#include "heightfield/erosion_params.h"
#include "heightfield/operator.h"

/// "Erode Now".
class HeightfieldErodeV2_CalculateButton : public CostlyOperatorButton {
 public:
  using CostlyOperatorButton::CostlyOperatorButton;
};

/// `heightfield_erode_v2`.
class HeightfieldErodeV2 : public CostlyOperator {
 public:
  HeightfieldErodeV2();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute() override;

 private:
  ErosionParams params_;
  HeightfieldErodeV2_CalculateButton calculateButton_{this, "Erode Now"};
};

/// `heightfield_erode_experiment`: computed whenever it is out of date.
class HeightfieldErosionExperiment : public OrdinaryOperator {
 public:
  HeightfieldErosionExperiment();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  ErosionParams params_;
};
