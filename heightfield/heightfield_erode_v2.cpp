// heightfield_erode_v2 and heightfield_erode_experiment.
#include "heightfield/heightfield_erode_v2.h"

#include "heightfield/whole_cell_drops.h"

HeightfieldErodeV2::HeightfieldErodeV2() {
  params_.DeclareErode(this);
  params_.DeclareResultMode(this);
  params_.DeclareFlow(this);
  Param(params_.deposition, "deposition", 0.5)
      .About("How much of what drops lay down raises the ground: 1 is all of it, 0 makes it vanish.");
  params_.DeclareDepositionRate(this, 100);
  params_.DeclareDiffusion(this, 5, 1, {.min = 0.0, .max = 10.0, .focusPower = 2.0});
  params_.DeclareSlip(this, 1, 45, {.min = 0.0, .max = 90.0});
  Param(autoFlag_, "auto_calculate", 0)
      .About("Erodes whenever something changes, and when the project is loaded. Off, only the button does.");
  PushButton(calculateButton_, "calculate_button");
}

long HeightfieldErodeV2::OnFirstCreate() {
  const long result = CostlyOperator::OnFirstCreate();
  SetParam("deposition", 1.0, this);
  SetParam("deposition_rate", 10.0, this);
  return result;
}

void HeightfieldErodeV2::OnParamChanged(long index, trBase* who) {
  trHeightfield::OnParamChanged(index, who, autoFlag_ && !IsParam(index, &autoFlag_));
}

long HeightfieldErodeV2::Compute() {
  const trHeightfield* input;
  if (!CopyInput(*this, input)) return 0;
  if (!input) return 1;

  trMersenneTwister generator(0);
  unsigned long token = 0;
  if (!WalkWholeCellDrops(params_.Field(*this), params_.depositionRate, generator,
                          DropCount(width, height, params_.duration), ReportErosion(*this, token)))
    return 0;
  TakeDifference(*this, *input, params_.resultMode);
  HfFindZRange();
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------

HeightfieldErosionExperiment::HeightfieldErosionExperiment() {
  KeepWhatAFailureLeaves();
  params_.DeclareErode(this);
  params_.DeclareFlow(this);
  Param(params_.deposition, "deposition", 0.5)
      .About("How much of what drops lay down raises the ground: 1 is all of it, 0 makes it vanish.");
  params_.DeclareDiffusion(this, 0.1, 0, {});
  params_.DeclareSlip(this, 0, 30, {});
}

long HeightfieldErosionExperiment::Compute(trHeightfield*) {
  const trHeightfield* input;
  if (!CopyInput(*this, input)) return 0;
  if (!input) return 1;

  trMersenneTwister generator(0);
  unsigned long token = 0;
  if (!WalkExperimentalDrops(params_.Field(*this), params_.erosionPower, generator,
                             DropCount(width, height, params_.duration), ReportErosion(*this, token)))
    return 0;
  HfFindZRange();
  return 1;
}
