// Operators that look at a point's neighbourhood: a blur and a median.
#pragma once

#include "heightfield/operator.h"

/// `heightfield_smooth`: the mean under a cone of `smooth_radius` metres.
class HeightfieldSmooth : public OrdinaryOperator {
 public:
  HeightfieldSmooth();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  unsigned char smooth_;
  double radius_;
  trDoubleHint radiusHint_;
};

/// The median of a square of points; not in the catalogue.
class HeightfieldMedian : public OrdinaryOperator {
 public:
  HeightfieldMedian();
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute(trHeightfield* input) override;

 private:
  long radius_;  // grid points
};
