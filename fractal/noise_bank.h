// The noises of a fractal as instances, one an octave.
#pragma once

#include "core/noise.h"
#include "fractal/noise_kernels.h"

/// Every noise that a fractal's octaves look up. The octave loop itself works on the seeds alone, in batches;
/// a bank serves whoever wants a single octave. Read-only once built.
struct FractalNoiseBank {
  trNoiseInstWrapper primary[kMaxOctaves], secondary[kMaxOctaves];
  trNoiseInst3 warpX[kMaxOctaves], warpY[kMaxOctaves], warpZ[kMaxOctaves];

  explicit FractalNoiseBank(const FractalSettings& settings) {
    const long octaves = settings.noiseOctaves < kMaxOctaves ? settings.noiseOctaves : kMaxOctaves;
    for (long i = 0; i < octaves; ++i) {
      const auto seed = [&](std::uint32_t base) {
        return static_cast<int>(FirstSeed(settings, base) + static_cast<std::uint32_t>(i));
      };
      primary[i].Configure(settings.fourDNoise == 1, seed(kPrimarySeed));
      secondary[i].Configure(settings.fourDNoise == 1, seed(kSecondarySeed));
      warpX[i].Init(true, seed(kWarpSeed));
      warpY[i].Init(true, seed(kWarpSeed + kWarpSeedStep));
      warpZ[i].Init(true, seed(kWarpSeed + 2 * kWarpSeedStep));
    }
  }
};
