// Operators that change every height by itself: a linear map, a clip, a curve.
#pragma once

#include "heightfield/operator.h"

/// `heightfield_adjust_vertical`: fits heights to a range, then multiplies, then adds. Heights in metres.
class HeightfieldAdjustVertical : public OrdinaryOperator {
 public:
  HeightfieldAdjustVertical();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  unsigned char setRange_ = 0, multiply_ = 1, add_ = 1;
  double highest_ = 0, lowest_ = 0, multiplier_ = 1, addend_ = 0;
  trDoubleHint heightHint_, multiplierHint_;
};

/// `heightfield_clip_vertical`: levels peaks and valleys, at metres. Where the limits cross, the valleys'
/// wins.
class HeightfieldClipVertical : public OrdinaryOperator {
 public:
  HeightfieldClipVertical();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  unsigned char clipPeaks_ = 1, clipValleys_ = 1;
  double peaks_ = 0, valleys_ = 0;
  trDoubleHint heightHint_;
};

/// `heightfield_curve_vertical`: bends the heights between two levels, which stay where they are. Glaciation
/// widens valleys or peaks; stretch steepens the middle.
class HeightfieldCurveVertical : public OrdinaryOperator {
 public:
  HeightfieldCurveVertical();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  double glaciation_ = 0, stretch_ = 0, top_ = 0, bottom_ = 0;
  unsigned char alternative_ = 0, useTop_ = 0, useBottom_ = 0;
  trDoubleHint heightHint_, curveHint_;
};
