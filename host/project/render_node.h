// The render node: picture size, quality and film.
#pragma once

#include "core/node.h"

class OV_API trRenderNode : public trBase {
 public:
  trRenderNode();

  long Width() const { return imageWidth_; }
  long Height() const { return imageHeight_; }
  /// Camera samples a pixel.
  long Samples() const { return samples_; }
  /// Dicing detail: 1 gives micropolygon edges of about a pixel, 2 half of that.
  double Detail() const { return detail_; }
  long MaxBounces() const { return maxBounces_; }
  /// Largest luminance one indirect path may add to a pixel's sample; 0 for no limit.
  double ClampIndirect() const { return clampIndirect_; }
  double Exposure() const { return exposure_; }
  bool SoftClip() const { return softClip_ != 0; }
  /// The camera to render from; null for the project's first.
  trBase* Camera() const { return camera_.LinkedNode(); }

 private:
  trIntHint sizeHint_, samplesHint_, bouncesHint_, engineHint_;
  trDoubleHint detailHint_, exposureHint_;
  trCameraLink camera_;
  long imageWidth_, imageHeight_, samples_, maxBounces_, engine_;
  double detail_, clampIndirect_, exposure_;
  unsigned char softClip_;
};
