// Directions across a normal.
#pragma once

#include <cmath>

#include "core/vector.h"

namespace ovhost {

/// Two unit vectors that stand on a unit vector and on one another; `front` x `side` is the vector.
inline void MakeTangents(const trVector& normal, trVector& side, trVector& front) {
  side = Normalised(std::fabs(normal.y) < 0.9 ? Cross(normal, {0, 1, 0}) : Cross(normal, {1, 0, 0}));
  front = Cross(side, normal);
}

/// Two unit vectors that make a right-handed frame with a unit vector, without a seam but at -z (Duff et al.
/// 2017): the footprint and the bumps of flat triangles.
inline void MakeFrame(const trVector& n, trVector& a, trVector& b) {
  const double sign = std::copysign(1.0, n.z), p = -1 / (sign + n.z), q = n.x * n.y * p;
  a = {1 + sign * n.x * n.x * p, sign * q, -sign * n.x};
  b = {q, sign + n.y * n.y * p, -n.y};
}

}  // namespace ovhost
