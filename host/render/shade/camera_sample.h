// What a camera sample brings home.
#pragma once

#include <vector>

#include "core/vector.h"
#include "host/image/deep_picture.h"
#include "host/render/parts/surface_hit.h"
#include "host/render/shade/light_layers.h"

namespace ovhost {

/// Everything one camera sample brings home.
struct CameraSample {
  trFCol beauty;  ///< sum of the layers
  LightLayers light;
  float alpha = 0;
  float depth = 0;    ///< metres along the ray; 0 where nothing was hit
  trVector position;  ///< world, metres
  trVector normal;
  trFCol albedo, direct, indirect, atmosphere;
  float nodeId = 0;  ///< 1 + the number of the object; 0 for the sky

  // Of samples that tell their depths (PathSettings::recordsSteps), by the engine's own memory, until it
  // traces its next samples.
  trFCol volumeOpacity;   ///< of the volumes before what is seen
  float volumeDepth = 0;  ///< where they hide it, on average, metres
  /// What volumes and surfaces brought and hid; what is missing to `beauty` and `alpha` belongs to `depth`,
  /// or behind everything. The air's may be those of other samples of the pixel too.
  const std::vector<DeepStep>* air = nullptr;
  std::vector<DeepStep>* steps = nullptr;
};

/// Tells a sample of the surface that it sees.
inline void FillSurfaceLayers(const SurfacePoint& point, double depth, const trFCol& albedo, int nodeId,
                              CameraSample& sample) {
  sample.depth = static_cast<float>(depth);
  sample.position = point.world;
  sample.normal = point.normal;
  sample.albedo = albedo;
  sample.nodeId = static_cast<float>(nodeId);
}

/// Samples of a pixel in a pass, from the second pass on.
constexpr int kPassSamples = 16;

}  // namespace ovhost
