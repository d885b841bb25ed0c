// What the erosion operators by drops have in common: parameters, the working copy, the map of differences.
#pragma once

#include "core/heightfield.h"
#include "core/idioms.h"
#include "heightfield/drop_run.h"
#include "heightfield/drop_settings.h"

/// Parameters of walking drops. Each class declares them in its own order, with its own defaults.
struct ErosionParams {
  void DeclareErode(trBase* node);
  void DeclareResultMode(trBase* node);
  /// flow_distance, duration and erosion_power.
  void DeclareFlow(trBase* node);
  void DeclareDepositionRate(trBase* node, double maximum);
  void DeclareDiffusion(trBase* node, double diffusion, unsigned char adapts, const trRange& range);
  void DeclareSlip(trBase* node, unsigned char slips, double angle, const trRange& range);

  /// How drops walk on a node's raster; the border and the centre of slopes are left at their defaults.
  DropField Field(trHeightfield& node) const;

  unsigned char erode;  // stored for old projects; nothing reads it
  double flowDistance, duration, erosionPower, deposition, diffusion;
  unsigned char adapts, slips;
  double slipAngle;
  // Not of every class.
  long resultMode = 0;
  double depositionRate = 0;

 private:
  trIntHint resultModeHint_;
  trDoubleHint flowDistanceHint_, durationHint_, erosionPowerHint_, depositionRateHint_, diffusionHint_,
      slipAngleHint_;
};

/// Makes the node's raster a copy of its input's, or flat without one. 0 without memory; `input` is null when
/// there is nothing to erode.
long CopyInput(trHeightfield& node, const trHeightfield*& input);

/// What a run of drops tells while it goes on, through the node; `token` is that of the run.
DropReport ReportErosion(trBase& node, unsigned long& token);

/// With the result mode "Difference", the raster becomes what erosion added to each point.
void TakeDifference(trHeightfield& node, const trHeightfield& input, long resultMode);
