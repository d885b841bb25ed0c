// The height of the old all-in-one globe.
#include "objects/planet_height.h"

#include <algorithm>

#include "core/guarded.h"
#include "core/seed.h"

namespace {

constexpr double kLacunarity = 1.92, kInverseLacunarity = 0.5208333333333334;
/// Octaves past this are far below a double's precision on any planet.
constexpr long kMostOctaves = 100;
/// The sea ripples in octaves finer than this, metres.
constexpr double kLargestRipple = 10;

trVector Lerp(const trVector& a, const trVector& b, double t) { return a + (b - a) * t; }

/// A point warped by all octaves of noise, by those from the fifth on, and by those from the ninth on.
struct WarpedPoints {
  trVector all, fine, finest;
};

WarpedPoints Warp(const trVector& p, const PlanetHeightParams& params, long octaves) {
  const auto sharp = [&params](const trVector& at, long steps) {
    return trOldSharpNoise3(at + trNoff3(static_cast<int>(trSeedAfter(params.seed, steps))));
  };
  trVector all, fine, finest;
  double frequency = 1;
  for (long i = 0; i < octaves; ++i, frequency *= kLacunarity) {
    const trVector at = p * frequency;
    const trVector offset = trVector(sharp(at, i + 2), sharp(at, i + 3), sharp(at, i + 4)) / frequency;
    all += offset;
    if (i >= 4) fine += offset;
    if (i >= 8) finest += offset;
  }
  return {p + all * params.warpAmount, p + fine * params.warpAmount, p + finest * (params.warpAmount * 0.5)};
}

/// What the sea takes off an octave of ground that lies below it.
double CoastErosion(double height, double size, double strength) {
  if (height >= 0) return 0;
  const double depth = GuardedDivide(-height * strength, size);
  return depth <= 0 ? 0 : depth >= 1 ? 2 * depth - 1 : depth * depth;
}

}  // namespace

PlanetHeightResult PlanetHeight(const trVector& point, const PlanetHeightParams& params) {
  PlanetHeightResult result;
  result.ocean = params.oceanLevel;
  const long octaves = std::min(params.octaves, kMostOctaves);
  if (octaves < 1) return result;

  double size = params.continentScale, amplitude = params.continentAmplitude;
  const trVector p = point / GuardedDenominator(params.continentScale);
  const WarpedPoints warped = Warp(p, params, octaves);

  double sum = 0, frequency = 1;
  for (long i = 0; i < octaves; ++i) {
    const double toFine = std::clamp((i - 4) * 0.25, 0.0, 1.0),
                 toFinest = std::clamp((i - 8) * 0.25, 0.0, 1.0);
    const trVector at = Lerp(Lerp(warped.all, warped.fine, toFine), warped.finest, toFinest);
    const auto offset = [&](long steps) {
      return trNoff3(static_cast<int>(trSeedAfter(params.seed, steps)));
    };
    const double noise = trOldSharpNoise3(at * frequency + offset(i));

    // Where the ground has risen, it is rougher and higher.
    sum += noise - CoastErosion(result.height, size, params.coastlineErosion);
    const double gain = std::exp(sum * params.amplitudeVariation);
    result.rock += std::pow(frequency, -0.25) * gain * noise;
    result.height += std::fmin(gain * amplitude, size * params.slopeClip) * noise;
    if (size < kLargestRipple) result.ocean += trNoise3(p * frequency + offset(i + 20)) * 0.1 * size;

    size *= kInverseLacunarity;
    frequency *= kLacunarity;
    const double roughness =
        params.mountainScale > size ? params.mountainRoughness : params.continentRoughness;
    amplitude *=
        std::pow(kLacunarity, GuardedDivide(-std::exp(-(sum * params.roughnessVariation)), roughness));
  }
  return result;
}
