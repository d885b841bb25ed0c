// The random draws of a populator's candidates.
#pragma once

#include <cstdint>

/// Draws that every candidate makes, whatever becomes of it.
inline constexpr int kCandidateDraws = 9;
/// Candidates whose draws are made together.
inline constexpr int kDrawLanes = 16;

/// The unit draws of `kDrawLanes` candidates: those that a trMersenneTwister gives first which is seeded with
/// `seed`, the next with `seed` + 1 and so on.
struct CandidateDraws {
  explicit CandidateDraws(std::uint32_t seed);
  /// Draw `number`, from 0, of a lane: 0 to 1, both ends included.
  double Unit(int number, int lane) const {
    return static_cast<double>(numbers[number][lane]) / 4294967295.0;
  }

  std::uint32_t numbers[kCandidateDraws][kDrawLanes];
};
