// Two heightfields into one.
#pragma once

#include "heightfield/operator.h"

/// `heightfield_merge`: point by point; where the second field has no points, the input is copied.
class HeightfieldMerge : public OrdinaryOperator {
 public:
  HeightfieldMerge();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  enum Mode : long { kMix, kAdd, kSubtract, kDifference, kHighest, kLowest, kMultiply, kScreen };
  /// The linked heightfield, or null.
  trHeightfield* Other() const;

  trNodeLink other_;
  double mixAmount_;
  long mode_;
  trIntHint modeHint_;
};
