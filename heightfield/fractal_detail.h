// Fractal detail of a heightfield: lookups are shifted by noise of many octaves, so that the grid doesn't
// show.
#pragma once

#include <array>

#include "core/vector.h"

/// Amplitudes of the octaves, made once for a node's settings.
class FractalDetail {
 public:
  struct Settings {
    double amount, variation, roughness;
  };
  FractalDetail() = default;
  explicit FractalDetail(const Settings& settings);

  /// How far the lookup at (x, y) is shifted, in the units of x and y. Thread-safe.
  tr2Vector Offset(double x, double y) const;

 private:
  static constexpr int kOctaves = 16;
  /// How far behind an octave's own noise offset that of its second noise stands.
  static constexpr int kSecondOffset = 5;
  double topFrequency_ = 0, outputScale_ = 0;
  std::array<double, kOctaves> amplitude_{};
  std::array<trVector, kOctaves + kSecondOffset> noiseOffset_{};
};
