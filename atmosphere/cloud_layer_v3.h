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

 private:
  trHeading lowScatterHeading_, highScatterHeading_, enviroHeading_;
};
