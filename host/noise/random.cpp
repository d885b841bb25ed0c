// MT19937 and the process-wide generator of seeds.
#include "core/random.h"

#include <algorithm>
#include <ctime>
#include <mutex>

namespace {
constexpr int kStateSize = 624;
constexpr int kShift = 397;

unsigned int Twisted(unsigned int far, unsigned int high, unsigned int low) {
  const unsigned int y = (high & 0x80000000u) | (low & 0x7fffffffu);
  return far ^ (y >> 1) ^ ((0u - (y & 1u)) & 0x9908b0dfu);
}

unsigned int Tempered(unsigned int y) {
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  return y ^ (y >> 18);
}

bool globalSeedFixed = false;
std::mutex globalMutex;
}  // namespace

trMersenneTwister trGlobalRand(static_cast<unsigned long>(std::time(nullptr)));

void trMersenneTwister::sgenrand(unsigned long seed) {
  state_[0] = static_cast<unsigned int>(seed);
  for (unsigned int i = 1; i < kStateSize; ++i)
    state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
  next_ = kStateSize;
}

void trMersenneTwister::Refill() {
  // In stretches whose sources lie a fixed way off, which compilers turn into vectors.
  constexpr int kWrap = kStateSize - kShift;
  for (int i = 0; i < kWrap; ++i) state_[i] = Twisted(state_[i + kShift], state_[i], state_[i + 1]);
  for (int i = kWrap; i < kStateSize - 1; ++i)
    state_[i] = Twisted(state_[i - kWrap], state_[i], state_[i + 1]);
  state_[kStateSize - 1] = Twisted(state_[kShift - 1], state_[kStateSize - 1], state_[0]);
  next_ = 0;
}

unsigned long trMersenneTwister::genrand() {
  if (next_ >= kStateSize) Refill();
  return Tempered(state_[next_++]);
}

void trMersenneTwister::Draw(unsigned int* numbers, int count) {
  while (count > 0) {
    if (next_ >= kStateSize) Refill();
    const int stretch = std::min(count, kStateSize - next_);
    const unsigned int* __restrict from = state_.data() + next_;
    unsigned int* __restrict to = numbers;
    for (int i = 0; i < stretch; ++i) to[i] = Tempered(from[i]);
    next_ += stretch;
    numbers += stretch;
    count -= stretch;
  }
}

long trNewSeed() {
  const std::lock_guard lock(globalMutex);
  if (!globalSeedFixed)
    trGlobalRand.sgenrand(trGlobalRand.genrand() + static_cast<unsigned long>(std::time(nullptr)));
  return static_cast<long>(trGlobalRand.genrand() & 0xffff);
}

void trFixGlobalSeed(unsigned long seed) {
  const std::lock_guard lock(globalMutex);
  globalSeedFixed = true;
  trGlobalRand.sgenrand(seed);
}
