// A layer of clouds that lights itself by more than one scattering, from voxels.
#pragma once

#include "atmosphere/cloud_layer_v2.h"
#include "core/idioms.h"

/// `cloud_layer_v3`. Always localised, always with voxels.
class CloudLayerV3 : public CloudLayerV2 {
 public:
  CloudLayerV3();
  long OnCreate() override;

 protected:
  /// For subclasses, which start from DefaultLayout.
  explicit CloudLayerV3(const CloudLayout& layout);
  static CloudLayout DefaultLayout();
  void DeclareLightingParams() override;
  void DeclareQualityParams() override;
  void PrepareCloudDerived() override;
  void ShadeStep(trRenderState& state, const trAtmosSample& sample, CloudState& data, trFCol& direct,
                 trFCol& enviro) override;

 private:
  trFCol LightOf(trRenderState& state, CloudThread& thread, const CloudLight& light,
                 const trAtmosSample& sample, const CloudStep& step) const;
  /// Light that lights' softened share brings in excess of what their straight light would.
  trFCol LightOfSoftening(trRenderState& state, const CloudState& data, const trVector& point) const;
  void AddScattered(trRenderState& state, const trAtmosSample& sample, const CloudState& data, float fade,
                    const Modulators& modulators, trFCol& direct, trFCol& enviro);

  trHeading lowScatterHeading_, highScatterHeading_, enviroHeading_;
};
