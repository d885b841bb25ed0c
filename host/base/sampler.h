// Low-discrepancy samples of a pixel: Owen-scrambled Sobol pairs, one independent scramble and order a
// dimension pair (Burley, Practical Hash-based Owen Scrambling, JCGT 2020).
#pragma once

#include <cstdint>

#include "core/vector.h"

namespace ovhost {

inline std::uint32_t MixBits(std::uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  return x ^ x >> 16;
}

inline std::uint64_t MixBits64(std::uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

inline std::uint32_t ReverseBits(std::uint32_t x) {
  x = (x & 0xaaaaaaaau) >> 1 | (x & 0x55555555u) << 1;
  x = (x & 0xccccccccu) >> 2 | (x & 0x33333333u) << 2;
  x = (x & 0xf0f0f0f0u) >> 4 | (x & 0x0f0f0f0fu) << 4;
  return __builtin_bswap32(x);
}

/// Nested uniform scramble in base 2 of a number whose bits are reversed: from its low bits up.
inline std::uint32_t ScrambleReversed(std::uint32_t x, std::uint32_t seed) {
  x ^= x * 0x3d20adeau;
  x += seed;
  x *= (seed >> 16) | 1u;
  x ^= x * 0x05526c56u;
  return x ^ x * 0x53a22864u;
}

/// The second Sobol dimension with its bits reversed (the first is the bit reversal, so reversed it is the
/// index). The generator matrix is Pascal's triangle modulo 2, which factors into five exclusive ors.
inline std::uint32_t Sobol1Reversed(std::uint32_t x) {
  x ^= x >> 16;
  x ^= (x & 0xff00ff00u) >> 8;
  x ^= (x & 0xf0f0f0f0u) >> 4;
  x ^= (x & 0xccccccccu) >> 2;
  return x ^ (x & 0xaaaaaaaau) >> 1;
}

/// Sample `index` of a pixel; draws pairs for one use after another. Per-thread state.
class PixelSampler {
 public:
  PixelSampler() = default;
  PixelSampler(std::uint64_t pixelKey, std::uint32_t index)
      : key_(static_cast<std::uint32_t>(MixBits64(pixelKey))), index_(index) {}

  /// The same sample with pairs of its own, for the path that branches off as number `branch`.
  PixelSampler Further(int branch) const {
    PixelSampler other = *this;
    other.dimension_ += static_cast<std::uint32_t>(branch) << 16;
    return other;
  }

  /// The next pair, each 0 to below 1.
  tr2Vector Next() {
    const std::uint32_t seed = MixBits(key_ + 0x9e3779b9u * ++dimension_);
    const std::uint32_t shuffled = ReverseBits(ScrambleReversed(ReverseBits(index_), seed));
    const std::uint32_t x = ReverseBits(ScrambleReversed(shuffled, MixBits(seed ^ 0x68bc21ebu)));
    const std::uint32_t y =
        ReverseBits(ScrambleReversed(Sobol1Reversed(shuffled), MixBits(seed ^ 0x02e5be93u)));
    return {x * 0x1p-32, y * 0x1p-32};
  }

 private:
  std::uint32_t key_ = 0, index_ = 0, dimension_ = 0;
};

}  // namespace ovhost
