// Shared parts of the erosion operators by drops.
#include "heightfield/erosion_params.h"

#include <algorithm>

#include "heightfield/operator.h"

void ErosionParams::DeclareErode(trBase* node) { node->Param(erode, "erode", 1); }

void ErosionParams::DeclareResultMode(trBase* node) {
  SetMenu(resultModeHint_, node, {{"Eroded Heightfield", 0}, {"Difference (Erosion Field)", 1}});
  node->Param(resultMode, "result_mode", 0, &resultModeHint_).Display("Result mode (output)");
}

void ErosionParams::DeclareFlow(trBase* node) {
  SetRange(flowDistanceHint_, node, {.min = 0.0, .max = 1000.0});
  node->Param(flowDistance, "flow_distance", 100.0, &flowDistanceHint_);
  SetRange(durationHint_, node, {.min = 0.0, .max = 10.0, .focusPower = 2.0});
  node->Param(duration, "duration", 1.0, &durationHint_);
  SetRange(erosionPowerHint_, node, {.focusPower = 2.0});
  node->Param(erosionPower, "erosion_power", 0.25, &erosionPowerHint_);
}

void ErosionParams::DeclareDepositionRate(trBase* node, double maximum) {
  SetRange(depositionRateHint_, node, {.min = 0.0, .max = maximum, .focusPower = 2.0});
  node->Param(depositionRate, "deposition_rate", 0.0, &depositionRateHint_);
}

void ErosionParams::DeclareDiffusion(trBase* node, double dflt, unsigned char adaptsDefault,
                                     const trRange& range) {
  SetRange(diffusionHint_, node, range);
  node->Param(diffusion, "diffusion", dflt, &diffusionHint_);
  node->Param(adapts, "diffusion_adapts_to_slope", adaptsDefault);
}

void ErosionParams::DeclareSlip(trBase* node, unsigned char slipsDefault, double angle,
                                const trRange& range) {
  node->Param(slips, "slip_at_angle", slipsDefault);
  SetRange(slipAngleHint_, node, range);
  node->Param(slipAngle, "slip_angle", angle, &slipAngleHint_);
}

DropField ErosionParams::Field(trHeightfield& node) const {
  DropField field;
  field.heights = node.HfScanlineRaw(0);
  field.width = node.width;
  field.height = node.height;
  DropSettings& s = field.settings;
  s.flowDistance = flowDistance;
  s.erosionPower = static_cast<float>(erosionPower);
  s.deposition = deposition;
  s.depositionRate = static_cast<float>(depositionRate);
  s.diffusion = diffusion;
  s.diffusionAdapts = adapts != 0;
  s.slipLimit = SlipLimit(slips != 0, slipAngle);
  return field;
}

long CopyInput(trHeightfield& node, const trHeightfield*& input) {
  node.Cleanup();
  input = node.HfInput();
  node.HfSetScaleEnabled(0);
  if (!HasPoints(input)) {
    input = nullptr;
    return MakeFlat(node);
  }
  if (!node.Init(0, 0, input->width, input->height)) return 0;
  ForEachRow(input->height, [&](long row) {
    std::copy_n(input->HfScanlineRaw(static_cast<int>(row)), input->width,
                node.HfScanlineRaw(static_cast<int>(row)));
  });
  return 1;
}

DropReport ReportErosion(trBase& node, unsigned long& token) {
  return [&node, &token](float fraction) {
    return node.ReportProgress(token, "HeightfieldErode: Eroding", fraction, -1.0f) != 0;
  };
}

void TakeDifference(trHeightfield& node, const trHeightfield& input, long resultMode) {
  if (resultMode != 1) return;
  unsigned long token = 0;
  const trString text = "HeightfieldErode: Difference Map";
  node.ReportProgress(token, text, 0.5f, -1.0f);
  ForEachRow(node.height, [&](long row) {
    float* const to = node.HfScanlineRaw(static_cast<int>(row));
    const float* const from = input.HfScanlineRaw(static_cast<int>(row));
    for (int x = 0; x < node.width; ++x) to[x] -= from[x];
  });
  node.ReportProgress(token, text, 1.0f, -1.0f);
}
