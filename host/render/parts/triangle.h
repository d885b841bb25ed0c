// Triangles: points by barycentric coordinates.
#pragma once

#include "core/vector.h"

namespace ovhost {

/// The mean of three corners' values at barycentric coordinates.
inline trVector BlendCorners(const trVector* corners, double u, double v) {
  return corners[0] * (1 - u - v) + corners[1] * u + corners[2] * v;
}

/// Barycentric coordinates of a vector in a triangle's plane: v = u edge1 + v edge2, as nearly as can be.
inline tr2Vector Barycentric(const trVector& edge1, const trVector& edge2, const trVector& vector) {
  const double a = edge1.LengthSquared(), b = Dot(edge1, edge2), c = edge2.LengthSquared();
  const double d = Dot(edge1, vector), e = Dot(edge2, vector), determinant = a * c - b * b;
  if (!(determinant > 0)) return {};
  return {(c * d - b * e) / determinant, (a * e - b * d) / determinant};
}

}  // namespace ovhost
