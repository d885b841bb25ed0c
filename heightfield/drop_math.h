// Small arithmetic of the drops, shared by all their walks.
#pragma once

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

#include "core/guarded.h"
#include "heightfield/cone_kernel.h"

/// Conversions that saturate; NaN counts as the lowest int.
inline int TruncatedInt(float v) {
  return static_cast<int>(std::min(std::max(-2147483648.0f, v), 2147483520.0f));
}
inline int FlooredInt(float v) {
  const float bounded = std::min(std::max(-2147483648.0f, v), 2147483520.0f);
  const int i = static_cast<int>(bounded);
  return i - (bounded < static_cast<float>(i));
}
inline int FlooredInt(double v) {
  return static_cast<int>(std::floor(std::min(std::max(-2147483648.0, v), 2147483647.0)));
}

/// Where a drop starts on an axis of `points`, from a unit draw.
inline int StartCell(double unit, int points) {
  const double wide = static_cast<float>(points);
  return std::min(static_cast<int>(std::min(unit * wide, wide - 1.0)), points - 1);
}

/// How many steps a drop takes, from a unit draw: most take few. Endless ones take as many as can be counted.
inline int StepCount(double unit, double flowDistance) {
  const double steps = std::exp((unit - 0.75) * 10.0) * flowDistance;
  return steps < INT_MAX ? static_cast<int>(std::max(steps, -1.0)) : INT_MAX;
}

/// The filter that slopes are taken with: 12 points of a 5 by 5 cone, four diagonal ones and eight a knight's
/// move away. A tap counts (difference * inverse square distance) * weight.
struct SlopeFilter {
  double diagonalScale, diagonalWeight, knightScale, knightWeight;

  SlopeFilter() {
    const ConeKernel cone(1.5f, 1.5f, false);
    diagonalScale = InverseSquare(2);
    knightScale = InverseSquare(5);
    diagonalWeight = cone.Row(1)[3];
    knightWeight = cone.Row(1)[4];
  }

  /// Where the taps lie, in the order in which they are summed.
  struct Tap {
    int dx, dy;
  };
  static constexpr Tap kTaps[] = {{-1, -2}, {1, -2}, {-2, -1}, {-1, -1}, {1, -1}, {2, -1},
                                  {-2, 1},  {-1, 1}, {1, 1},   {2, 1},   {-1, 2}, {1, 2}};
  static constexpr bool IsDiagonal(int dx, int dy) { return dx * dx + dy * dy == 2; }
  double Scale(int dx, int dy) const { return IsDiagonal(dx, dy) ? diagonalScale : knightScale; }
  double Weight(int dx, int dy) const { return IsDiagonal(dx, dy) ? diagonalWeight : knightWeight; }
  /// What a tap counts; its shares along the axes are dx and dy times that.
  double Weighted(float difference, int dx, int dy) const {
    return static_cast<double>(difference) * Scale(dx, dy) * Weight(dx, dy);
  }

 private:
  static double InverseSquare(double distanceSquared) {
    const double inverse = 1.0 / std::sqrt(distanceSquared);
    return inverse * inverse;
  }
};
