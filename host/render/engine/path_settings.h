// What the engines are told, and what they count.
#pragma once

#include <cstdint>

#include "host/render/engine/pixel_filter.h"

namespace ovhost {

struct PathSettings {
  PixelFilter filter;
  int maxBounces = 1;           ///< diffuse
  int maxSpecularBounces = 8;   ///< reflected and refracted
  float clampIndirect = 1.5f;   ///< largest luminance an indirect path may add; 0 for no limit
  int rouletteStart = 1;        ///< bounces after which weak paths end by chance
  double leastSurvival = 0.25;  ///< smallest chance of a path to go on; 1 for no roulette
  /// Whether the camera, also by mirrors and through glass, sees volumes that tell their matter by paths
  /// through it in place of their own samples.
  bool followsMatter = false;
  bool recordsSteps = false;  ///< camera samples tell their depths
  /// Ways of finding lights by lobes that can be drawn both ways: both, or one of them alone, to compare.
  enum class Lights { kBoth, kLightsOnly, kLobesOnly } lights = Lights::kBoth;

  bool operator==(const PathSettings&) const = default;
};

struct PathCounters {
  std::uint64_t cameraRays = 0, shadowRays = 0, bounceRays = 0, volumeSamples = 0;

  PathCounters operator+(const PathCounters& other) const {
    return {cameraRays + other.cameraRays, shadowRays + other.shadowRays, bounceRays + other.bounceRays,
            volumeSamples + other.volumeSamples};
  }
};

}  // namespace ovhost
