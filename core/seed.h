// Seeds that a node derives from its own.
#pragma once

/// The seed so many steps on. Seeds lie in a circle: the least follows the largest.
inline long trSeedAfter(long seed, long steps) {
  return static_cast<long>(static_cast<unsigned long>(seed) + static_cast<unsigned long>(steps));
}
