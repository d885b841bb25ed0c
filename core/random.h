// Pseudo-random generators of node code. Evaluation never uses these: it draws from its shading state.
#pragma once

#include <array>

#include "core/api.h"

/// MT19937 (Matsumoto and Nishimura, ACM TOMACS 8, 1998) with the authors' initialiser of 2002.
/// One thread at a time.
class OV_API trMersenneTwister {
 public:
  explicit trMersenneTwister(unsigned long seed = 5489) { sgenrand(seed); }
  /// Restarts the sequence; the low 32 bits of `seed` count.
  void sgenrand(unsigned long seed);
  /// Next number of the sequence, 0 to 2^32 - 1.
  unsigned long genrand();
  /// The next `count` numbers of the sequence, as so many calls of genrand would give them, only faster.
  void Draw(unsigned int* numbers, int count);
  /// Unit draw: genrand() over 2^32 - 1, both ends included.
  double Unit() { return static_cast<double>(genrand()) / 4294967295.0; }

 private:
  void Refill();

  std::array<unsigned int, 624> state_;
  int next_ = 624;
};

using trRand = trMersenneTwister;

/// The process-wide generator of new seeds. Main thread only.
extern OV_API trMersenneTwister trGlobalRand;

/// A fresh 16-bit node seed: reseeds trGlobalRand with its own next number plus the time in seconds, unless
/// the user fixed the generator's seed for a repeatable run, and draws. Thread-safe.
OV_API long trNewSeed();
/// Fixes the sequence of trGlobalRand, so that scripted runs repeat. Thread-safe.
OV_API void trFixGlobalSeed(unsigned long seed);
