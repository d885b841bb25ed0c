// A generator of its own for each candidate would spend all its time on seeding: 624 words, each from the one
// before. The first nine numbers of MT19937 (Matsumoto and Nishimura, ACM TOMACS 8, 1998) hang on words 0 to
// 9 and 397 to 405 alone, and the chains of several seeds go side by side in vectors.
#include "objects/candidate_draws.h"

namespace {

constexpr int kShift = 397;

struct Lanes {
  std::uint32_t word[kDrawLanes];
};

/// Word `index` of the seeded state from the one before.
void Step(Lanes& lanes, std::uint32_t index) {
  for (std::uint32_t& x : lanes.word) x = 1812433253u * (x ^ (x >> 30)) + index;
}

}  // namespace

CandidateDraws::CandidateDraws(std::uint32_t seed) {
  Lanes near[kCandidateDraws + 1];
  Lanes chain;
  for (int lane = 0; lane < kDrawLanes; ++lane) chain.word[lane] = seed + static_cast<std::uint32_t>(lane);
  near[0] = chain;
  std::uint32_t index = 1;
  for (; index <= kCandidateDraws; ++index) {
    Step(chain, index);
    near[index] = chain;
  }
  for (; index < kShift; ++index) Step(chain, index);
  for (int draw = 0; draw < kCandidateDraws; ++draw, ++index) {
    Step(chain, index);
    for (int lane = 0; lane < kDrawLanes; ++lane) {
      const std::uint32_t high = near[draw].word[lane] & 0x80000000u,
                          low = near[draw + 1].word[lane] & 0x7fffffffu, mixed = high | low;
      std::uint32_t y = chain.word[lane] ^ (mixed >> 1) ^ ((0u - (mixed & 1u)) & 0x9908b0dfu);
      y ^= y >> 11;
      y ^= (y << 7) & 0x9d2c5680u;
      y ^= (y << 15) & 0xefc60000u;
      numbers[draw][lane] = y ^ (y >> 18);
    }
  }
}
