// The render node: picture size, quality and film.
#pragma once

#include "core/render_state.h"

class OV_API trRenderNode : public trBase {
 public:
  enum Engine : long { kStandard = 0, kPath = 1 };

  trRenderNode();
  long OnFirstCreate() override;

  long Width() const { return imageWidth_; }
  long Height() const { return imageHeight_; }
  Engine UsedEngine() const { return engine_ == kStandard ? kStandard : kPath; }
  /// Camera samples a pixel, at most.
  long Samples() const { return samples_; }
  /// Noise, as a share of brightness, at which a part of the picture takes no more samples; 0 for never.
  double NoiseTarget() const { return noiseTarget_; }
  long LeastSamples() const { return leastSamples_; }
  /// Dicing detail: 1 gives micropolygon edges of about a pixel, 2 half of that.
  double Detail() const { return detail_; }
  /// Vertices of micropolygons that a surface may have, for each pixel of the picture at detail 1; 0 for no
  /// limit but memory.
  double DicingLimit() const { return dicingLimit_; }
  long MaxBounces() const { return maxBounces_; }
  long MaxSpecularBounces() const { return maxSpecularBounces_; }
  /// Largest luminance one indirect path may add to a pixel's sample; 0 for no limit.
  double ClampIndirect() const { return clampIndirect_; }
  /// After so many bounces, weak paths end by chance; -1 for never.
  long RouletteStart() const { return roulette_ ? rouletteStart_ : -1; }
  double LeastSurvival() const { return leastSurvival_; }
  /// Whether rough surfaces give back what single scattering between their facets loses.
  bool CompensatesEnergy() const { return energyCompensation_ != 0; }
  /// How the steps of a cloud's march count.
  trCloudSteps CloudSteps() const {
    return cloudSteps_ == static_cast<long>(trCloudSteps::kAsLayersTell) ? trCloudSteps::kAsLayersTell
                                                                         : trCloudSteps::kTrueLengths;
  }
  /// Whether the path tracer follows light through clouds from scattering to scattering.
  bool FollowsLightThroughClouds() const { return exactClouds_ != 0; }
  /// The standard engine: bounces averaged at a point of cached light, pixels between such points, and the
  /// share in a pixel below which reflections and refractions are left to chance.
  long IndirectSamples() const { return indirectSamples_; }
  double IndirectSpacing() const { return indirectSpacing_; }
  double LeastImportance() const { return leastImportance_; }
  /// 0 box, 1 tent, 2 Gaussian, 3 Blackman-Harris.
  long Filter() const { return filter_; }
  double FilterWidth() const { return filterWidth_; }
  double Exposure() const { return exposure_; }
  bool SoftClip() const { return softClip_ != 0; }
  /// Smooth what noise is left, along the scene's features.
  bool Denoise() const { return denoise_ != 0; }
  /// The camera to render from; null for the project's first.
  trBase* Camera() const { return camera_.LinkedNode(); }
  /// Who gets the diced surface of each frame; null for nobody.
  trBase* MicroExporter() const { return microExporter_.LinkedNode(); }

 private:
  trIntHint sizeHint_, samplesHint_, bouncesHint_, deepBouncesHint_, engineHint_, filterHint_, indirectHint_,
      cloudStepsHint_;
  trDoubleHint spacingHint_, importanceHint_, detailHint_, dicingLimitHint_, exposureHint_, noiseHint_,
      chanceHint_, brightnessHint_, filterWidthHint_;
  trCameraLink camera_;
  trNodeLink microExporter_;
  long imageWidth_, imageHeight_, engine_, samples_, leastSamples_, maxBounces_, maxSpecularBounces_,
      rouletteStart_, indirectSamples_, filter_, cloudSteps_;
  double indirectSpacing_, leastImportance_, noiseTarget_, detail_, dicingLimit_, clampIndirect_,
      leastSurvival_, filterWidth_, exposure_;
  unsigned char roulette_, energyCompensation_, exactClouds_, softClip_, denoise_;
};
