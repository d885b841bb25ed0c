// What the engines are told, and what they count.
#pragma once

#include <cstdint>

#include "host/render/pixel_filter.h"

namespace ovhost {

/// Filter footprint of a camera sample, in pixels: the samples of a pixel average what is finer than it.
constexpr double kPixelFootprint = 0.5;
/// Cone that a diffuse bounce opens, radians: what it meets is seen no sharper, so that bright images of a
/// sun don't turn into bright dots (path space regularisation, Kaplanyan and Dachsbacher 2013).
constexpr double kDiffuseSpread = 0.25;

struct PathSettings {
  PixelFilter filter;
  int maxBounces = 1;           ///< diffuse
  int maxSpecularBounces = 8;   ///< reflected and refracted
  float clampIndirect = 1.5f;   ///< largest luminance an indirect path may add; 0 for no limit
  int rouletteStart = 1;        ///< bounces after which weak paths end by chance
  double leastSurvival = 0.25;  ///< smallest chance of a path to go on; 1 for no roulette
  /// Ways of finding lights by lobes that can be drawn both ways: both, or one of them alone, to compare.
  enum class Lights { kBoth, kLightsOnly, kLobesOnly } lights = Lights::kBoth;
};

struct PathCounters {
  std::uint64_t cameraRays = 0, shadowRays = 0, bounceRays = 0, volumeSamples = 0;

  PathCounters operator+(const PathCounters& other) const {
    return {cameraRays + other.cameraRays, shadowRays + other.shadowRays, bounceRays + other.bounceRays,
            volumeSamples + other.volumeSamples};
  }
};

}  // namespace ovhost
