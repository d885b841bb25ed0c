// A cone of weights round a grid point, shared by smoothing and erosion.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

/// Weights fall from 1 in the middle to 0 at one interval beyond the radii. Row-major, single precision.
struct ConeKernel {
  /// Kernels of more weights than this are refused: they take longer than anybody waits.
  static constexpr double kMaxWeights = 1 << 26;

  int halfX = 0, halfY = 0;  ///< the kernel reaches from -half to +half, in grid points
  std::vector<float> weights;

  /// Whether radii, in grid points, are small enough.
  static bool IsSensible(float rx, float ry) {
    const double x = rx < 0 ? 0 : rx, y = ry < 0 ? 0 : ry;
    return (2 * std::ceil(x) + 1) * (2 * std::ceil(y) + 1) <= kMaxWeights;  // false for NaN
  }

  /// For radii of 0 or more; what is less counts as 0. With `normalise` the weights' sum is 1.
  ConeKernel(float rx, float ry, bool normalise)
      : halfX(static_cast<int>(std::ceil(std::fmax(rx, 0.0f)))),
        halfY(static_cast<int>(std::ceil(std::fmax(ry, 0.0f)))) {
    const float reachX = std::fmax(rx, 0.0f) + 1, reachY = std::fmax(ry, 0.0f) + 1;
    weights.reserve(static_cast<std::size_t>(WidthX()) * WidthY());
    double sum = 0;
    for (int j = -halfY; j <= halfY; ++j)
      for (int i = -halfX; i <= halfX; ++i) {
        const float x = static_cast<float>(i), y = static_cast<float>(j);
        const float far = std::sqrt(x * x / (reachX * reachX) + y * y / (reachY * reachY));
        weights.push_back(std::fmax(0.0f, 1.0f - far));
        sum += weights.back();
      }
    if (normalise && sum != 0)
      for (float& weight : weights) weight = static_cast<float>(weight / sum);
  }

  int WidthX() const { return 2 * halfX + 1; }
  int WidthY() const { return 2 * halfY + 1; }
  const float* Row(int j) const { return &weights[static_cast<std::size_t>(j + halfY) * WidthX()]; }
};
