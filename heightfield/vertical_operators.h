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
  unsigned char setRange_, multiply_, add_;
  double highest_, lowest_, multiplier_, addend_;
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
  unsigned char clipPeaks_, clipValleys_;
  double peaks_, valleys_;
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
  double glaciation_, stretch_, top_, bottom_;
  unsigned char alternative_, useTop_, useBottom_;
  trDoubleHint heightHint_, curveHint_;
};
