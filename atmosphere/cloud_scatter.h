// A cloud layer as the scatter model sees it.
#pragma once

#include "core/voxel.h"

class CloudLayerV2;

/// Thread-safe; each call leaves the state as it was.
class CloudMedium final : public trVoxelScatterMedium {
 public:
  /// `state` is asked which of its lights is the main one. Main thread only.
  CloudMedium(CloudLayerV2& cloud, trRenderState& state);
  trFCol Extinction(trRenderState& state, const trVector& point) override;
  trFCol DirectLight(trRenderState& state, const trVector& point) override;
  trFCol AverageBackground(trRenderState& state, const trVector& point) override;
  trFCol Albedo() const override;
  float PhaseFunction(double cosAngle) const override;
  trVector MainLightDirection() const override { return towardsMainLight_; }
  double GreatestExtinction() const override;
  bool LightOutside(trRenderState& state, const trVector& point, trFCol& light) override;
  bool BackgroundOutside(trRenderState& state, const trVector& point, const trVector& direction,
                         trFCol& radiance) override;

  /// The light whose paths the model follows; null for none.
  const trLightState* MainLight(const trRenderState& state) const {
    return mainLight_ >= 0 && mainLight_ < state.NumLights() ? state.Light(mainLight_) : nullptr;
  }

 private:
  trFCol LightAt(trRenderState& state, const trLightState& light, const trVector& point,
                 float densityScale) const;

  CloudLayerV2& cloud_;
  int mainLight_ = -1;
  trVector towardsMainLight_{0, 1, 0};
};
