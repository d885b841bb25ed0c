// MT19937 and the process-wide generator of seeds.
#include "core/random.h"

#include <ctime>

namespace {
constexpr int kStateSize = 624;
constexpr int kShift = 397;
bool globalSeedFixed = false;
}  // namespace

trMersenneTwister trGlobalRand(static_cast<unsigned long>(std::time(nullptr)));

void trMersenneTwister::sgenrand(unsigned long seed) {
  state_[0] = static_cast<unsigned int>(seed);
  for (unsigned int i = 1; i < kStateSize; ++i)
    state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
  next_ = kStateSize;
}

unsigned long trMersenneTwister::genrand() {
  if (next_ >= kStateSize) {
    for (int i = 0; i < kStateSize; ++i) {
      const unsigned int y = (state_[i] & 0x80000000u) | (state_[(i + 1) % kStateSize] & 0x7fffffffu);
      state_[i] = state_[(i + kShift) % kStateSize] ^ (y >> 1) ^ ((y & 1u) ? 0x9908b0dfu : 0u);
    }
    next_ = 0;
  }
  unsigned int y = state_[next_++];
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  return y ^ (y >> 18);
}

long trNewSeed() {
  if (!globalSeedFixed)
    trGlobalRand.sgenrand(trGlobalRand.genrand() + static_cast<unsigned long>(std::time(nullptr)));
  return static_cast<long>(trGlobalRand.genrand() & 0xffff);
}

void trFixGlobalSeed(unsigned long seed) {
  globalSeedFixed = true;
  trGlobalRand.sgenrand(seed);
}
