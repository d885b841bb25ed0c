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

}  // namespace ovhost
