// What a camera sample brings home.
#pragma once

#include "core/vector.h"
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

/// Samples of a pixel in a pass, from the second pass on.
constexpr int kPassSamples = 16;

}  // namespace ovhost
