// Directions across a normal.
#pragma once

#include <cmath>

#include "core/vector.h"

namespace ovhost {

/// Two unit vectors that make a right-handed frame with a unit vector (Duff et al. 2017).
inline void MakeTangents(const trVector& n, trVector& a, trVector& b) {
  const double sign = std::copysign(1.0, n.z), p = -1 / (sign + n.z), q = n.x * n.y * p;
  a = {1 + sign * n.x * n.x * p, sign * q, -sign * n.x};
  b = {q, sign + n.y * n.y * p, -n.y};
}

}  // namespace ovhost
