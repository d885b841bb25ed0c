// Operators that change which part of the world a heightfield covers, and with how many points.
#pragma once

#include "heightfield/operator.h"

/// `heightfield_crop`: a rectangle of the input's points, of the same scale.
class HeightfieldCrop : public OrdinaryOperator {
 public:
  HeightfieldCrop();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  /// The crop's first and last points on one axis of `count` points.
  struct Span {
    double first, last;
  };
  Span Wanted(double a, double b, int count) const;
  void TakeCorners(const trHeightfield& input, const Span& x, const Span& y);

  unsigned char crop_, includeTopRight_, pad_;
  tr2Vector bottomLeft_, topRight_;
};

/// `heightfield_resize`: another number of points, another size in metres, or both. New points keep slopes:
/// heights in raster units follow the new scale.
class HeightfieldResize : public OrdinaryOperator {
 public:
  HeightfieldResize();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute(trHeightfield* input) override;

 private:
  long Resample(const trHeightfield* input);
  void Rescale();

  unsigned char resample_, resize_, rescaleVertical_;
  tr2Vector sizeInPixels_, sizeInMetres_;
  bool isResampled_ = false, isResized_ = false;  ///< whether the own scale comes from that step
};
