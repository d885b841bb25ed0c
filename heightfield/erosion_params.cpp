// Shared parts of the erosion operators by drops.
#include "heightfield/erosion_params.h"

#include <algorithm>

#include "heightfield/operator.h"

void ErosionParams::DeclareErode(trBase* node) {
  node->Param(erode, "erode", 1).About("Kept for older projects; without effect.");
}

void ErosionParams::DeclareResultMode(trBase* node) {
  SetMenu(resultModeHint_, node, {{"Eroded Heightfield", 0}, {"Difference (Erosion Field)", 1}});
  node->Param(resultMode, "result_mode", 0, &resultModeHint_)
      .Display("Result mode (output)")
      .About("Gives the eroded ground, or what erosion changed: above 0 was laid down, below 0 worn away.");
}

void ErosionParams::DeclareFlow(trBase* node) {
  SetRange(flowDistanceHint_, node, {.min = 0.0, .max = 1000.0});
  node->Param(flowDistance, "flow_distance", 100.0, &flowDistanceHint_)
      .About(
          "A quarter of the drops run further than so many points. Longer carries valleys on to the plains.");
  SetRange(durationHint_, node, {.min = 0.0, .max = 10.0, .focusPower = 2.0});
  node->Param(duration, "duration", 1.0, &durationHint_)
      .About("Drops for each point of the field. More erodes longer and takes as much longer.");
  SetRange(erosionPowerHint_, node, {.focusPower = 2.0});
  node->Param(erosionPower, "erosion_power", 0.25, &erosionPowerHint_)
      .About("Share of each fall's height that a drop takes off, up to 0.5. High cuts deep gullies.");
}

void ErosionParams::DeclareDepositionRate(trBase* node, double maximum) {
  SetRange(depositionRateHint_, node, {.min = 0.0, .max = maximum, .focusPower = 2.0});
  node->Param(depositionRate, "deposition_rate", 0.0, &depositionRateHint_)
      .About("How soon drops lay down what they carry: 0 is evenly all the way, more at the foot of slopes.");
}

void ErosionParams::DeclareDiffusion(trBase* node, double dflt, unsigned char adaptsDefault,
                                     const trRange& range) {
  SetRange(diffusionHint_, node, range);
  node->Param(diffusion, "diffusion", dflt, &diffusionHint_)
      .About("How much drops stray from the line of fall. Low cuts sharp gullies, high wears broad slopes.");
  node->Param(adapts, "diffusion_adapts_to_slope", adaptsDefault)
      .About("Lets drops stray the more the steeper the ground is.");
}

void ErosionParams::DeclareSlip(trBase* node, unsigned char slipsDefault, double angle,
                                const trRange& range) {
  node->Param(slips, "slip_at_angle", slipsDefault)
      .About("Throws drops about where it is steep, so that walls wear down to scree.");
  SetRange(slipAngleHint_, node, range);
  node->Param(slipAngle, "slip_angle", angle, &slipAngleHint_)
      .About("Slope from which on drops are thrown about, degrees from level ground.");
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
