// Directions spread evenly over a half space.
#pragma once

#include <cmath>

#include "core/vector.h"

namespace ovhost {

/// Direction number `i` of n over the hemisphere about `up` (Fibonacci spiral).
inline trVector HemisphereDirection(int i, int n, const trVector& up) {
  const trVector side = Normalised(std::fabs(up.y) < 0.9 ? Cross(up, {0, 1, 0}) : Cross(up, {1, 0, 0}));
  const trVector front = Cross(side, up);
  const double cosine = (i + 0.5) / n, sine = std::sqrt(std::fmax(1 - cosine * cosine, 0)),
               turn = 2.399963229728653 * i;
  return up * cosine + side * (sine * std::cos(turn)) + front * (sine * std::sin(turn));
}

}  // namespace ovhost
