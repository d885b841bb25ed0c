// Constants of the hashed noise lattice, and its scalar hash for the noises that are evaluated one value at a
// time.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace ovnoise {

// Odd multipliers with well spread bits; found by search for white spectra of the gradients over lattice
// slices.
inline constexpr uint64_t kCellMultiplier1 = 0x9e3779b1;
inline constexpr uint64_t kCellMultiplier2 = 0x85ebca77;
inline constexpr uint64_t kCellMultiplier3 = 0xc2b2ae3d;
inline constexpr uint64_t kSeedSalt = 0x7f4a7c15;
/// Added to the cell numbers of y, z and w, so that no two axes hash alike.
inline constexpr uint64_t kAxisOffset[4] = {0x00000000, 0x27d4eb2f, 0x165667b1, 0x51ed270b};

/// 1.5 * 2^52: adding it to an integral double leaves the integer in the low mantissa bits.
inline constexpr double kFloorToBits = 6755399441055744.0;
/// 2^51: coordinates from here on have no fraction left and count as 0.
inline constexpr double kLatticeEnd = 2251799813685248.0;
inline constexpr uint64_t kOneBits = 0x3ff0000000000000;
inline constexpr uint64_t kMantissaMask = 0x000fffffffffffff;

/// A fixed rotation about a generic axis (orthonormal rows): slices along world axes never run along lattice
/// planes, where gradient noise is 0 at every corner and its grid would show.
inline constexpr double kRotation3[3][3] = {{-0.6594993994642367, 0.332076601081227, 0.6743779897955231},
                                            {-0.6857205194270054, -0.6333242819962079, -0.3587307110783041},
                                            {0.30797388094296085, -0.6990175139782461, 0.6453887230255915}};
/// The same for four dimensions: no instant of an animated noise is a lattice plane either.
inline constexpr double kRotation4[4][4] = {
    {0.40291466489927374, 0.6513032298889379, -0.4604711392710211, 0.44880976531687833},
    {0.5777602044083084, -0.41797175968530226, 0.44353193329552215, 0.5429292573206734},
    {0.5553782305558287, -0.41705464051531665, -0.5527739614981673, -0.46050124358023153},
    {-0.4420497031283389, -0.47662263654431003, -0.5344966805651904, 0.5401261156086521}};

// Bring both noises to a standard deviation of 0.27, which puts their extremes near plus and minus 1.
inline constexpr double kScale3 = 2.4;
inline constexpr double kScale4 = 2.318;

inline constexpr uint64_t MulLow32(uint64_t a, uint64_t b) { return (a & 0xffffffff) * (b & 0xffffffff); }
inline constexpr uint64_t HashCell(uint64_t cell) {
  uint64_t h = MulLow32(cell, kCellMultiplier1);
  h ^= h >> 32;
  return MulLow32(h, kCellMultiplier2);
}
inline constexpr uint64_t MixCorner(uint64_t sum) { return sum ^ MulLow32(sum, sum >> 32); }
inline constexpr uint64_t HashSeed(uint64_t seed) {
  uint64_t h = MulLow32(seed ^ kSeedSalt, kCellMultiplier1);
  h ^= h >> 32;
  h = MulLow32(h, kCellMultiplier2);
  h ^= h >> 29;
  return MulLow32(h, kCellMultiplier3) ^ (h << 32);
}
/// A number in [1, 2) whose mantissa begins at the hash's bit 51.
inline constexpr double OneToTwo(uint64_t hash) {
  return std::bit_cast<double>(kOneBits | (hash & kMantissaMask));
}

/// Coordinates that have no cell any more count as 0.
inline double Sanitise(double x) { return std::fabs(x) < kLatticeEnd ? x : 0.0; }

/// A lattice cell (its three numbers, wrapped at 2^32 when hashed) and the fraction within it.
struct CellPoint {
  int64_t cell[3];
  double fraction[3];

  explicit CellPoint(const double* point) {
    for (int i = 0; i < 3; ++i) {
      const double x = Sanitise(point[i]), floor = std::floor(x);
      cell[i] = static_cast<int64_t>(floor);
      fraction[i] = x - floor;
    }
  }
};

/// Hash of cell number `cell` along `axis`, to be summed over the axes and mixed.
inline constexpr uint64_t HashAxis(int64_t cell, int axis) {
  return HashCell(static_cast<uint64_t>(cell) + kAxisOffset[axis]);
}

/// Quintic fade of Perlin (Improving Noise, 2002): first and second derivative 0 at both ends.
inline constexpr double Fade(double t) { return t * t * t * ((t * 6.0 - 15.0) * t + 10.0); }

}  // namespace ovnoise
