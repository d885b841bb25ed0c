// What a camera sample brings home.
#pragma once

#include "core/vector.h"
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
