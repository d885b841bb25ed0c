// heightfield_erode_v3.
#include "heightfield/heightfield_erode_v3.h"

#include <algorithm>

HeightfieldErodeV3::HeightfieldErodeV3() {
  params_.DeclareErode(this);
  Param(multiThread_, "multi-thread", 0)
      .Display("Multi-thread (much faster, but non-deterministic)")
      .About(
          "Lets drops run in any order, on all cores: fastest. Off, the same settings always give the same "
          "ground.");
  Param(fixGradient_, "fix_gradient_bug", 0)
      .About(
          "Takes slopes about the nearest point. Off, about the one south-west of it, as older projects "
          "did.");
  SetMenu(borderFlowHint_, this, {{"Stop", 0}, {"Continue off map", 1}, {"Go around to opposite side", 2}});
  Param(borderFlow_, "border_flow_mode", 2, &borderFlowHint_)
      .Display("Border flow")
      .About(
          "What becomes of drops that reach the border: they end, may come back, or go on from the other "
          "side.");
  weightHeading_.Declare(this, "weight_separator", "Weight");
  params_.DeclareFlow(this);
  characterHeading_.Declare(this, "character_separator", "Character");
  Param(params_.deposition, "deposition", 0.5)
      .About("How much of what drops lay down raises the ground: 1 is all of it, 0 makes it vanish.");
  params_.DeclareDepositionRate(this, 10);
  params_.DeclareDiffusion(this, 3, 1, {.min = 0.0, .max = 10.0, .focusPower = 2.0});
  params_.DeclareSlip(this, 0, 45, {.min = 0.0, .max = 90.0});
  AddGuiAction({"slip_at_angle"}, {"slip_angle"}, 2);
  params_.DeclareResultMode(this);
  Param(autoFlag_, "auto_calculate", 0)
      .About("Erodes whenever something changes, and when the project is loaded. Off, only the button does.");
  PushButton(calculateButton_, "calculate_button");
}

long HeightfieldErodeV3::OnFirstCreate() {
  const long result = CostlyOperator::OnFirstCreate();
  SetParam("multi-thread", 1, this);
  SetParam("fix_gradient_bug", 1, this);
  SetParam("deposition", 1.0, this);
  SetParam("deposition_rate", 1.0, this);
  return result;
}

void HeightfieldErodeV3::OnParamChanged(long index, trBase* who) {
  trHeightfield::OnParamChanged(index, who, autoFlag_ && !IsParam(index, &autoFlag_));
}

long HeightfieldErodeV3::Compute() {
  const trHeightfield* input;
  if (!CopyInput(*this, input)) return 0;
  if (!input) return 1;

  const int cores = std::max(1, trNumCoresToUse());
  std::vector<trMersenneTwister> generators;
  for (int i = 0; i < cores; ++i) generators.emplace_back(i);
  DropField field = params_.Field(*this);
  field.settings.border = static_cast<BorderFlow>(borderFlow_);
  field.settings.nearestCentre = fixGradient_ != 0;
  const std::int64_t drops = DropCount(width, height, params_.duration);

  unsigned long token = 0;
  const auto order = multiThread_ ? DropOrder::kAny : DropOrder::kRepeatable;
  if (!RunDrops(field, order, cores, generators, drops, ReportErosion(*this, token))) return 0;
  TakeDifference(*this, *input, params_.resultMode);
  HfFindZRange();
  return 1;
}
