// A filter along the way downhill, without drops.
#pragma once

#include "heightfield/operator.h"

/// `heightfield_smooth_erode`: every point goes down to the lowest blend with what lies downhill of it.
class HeightfieldSmoothErode : public OrdinaryOperator {
 public:
  HeightfieldSmoothErode();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  unsigned char smooth_;  // stored for old projects; nothing reads it
  double radius_;
  trDoubleHint radiusHint_;
};
