// Unit vectors in 32 bits.
#pragma once

#include <cmath>
#include <cstdint>

#include "core/api.h"
#include "core/vector.h"

namespace ovhost {

/// A unit vector in 32 bits: octahedral, 16 bits a side (Cigolle et al. 2014); error below 0.004 degrees.
struct OV_API PackedNormal {
  std::uint32_t bits = 0;
  PackedNormal() = default;
  explicit PackedNormal(const trVector& n);
  trVector Unpack() const {
    double u = (bits & 0xffffu) * (2.0 / 65535.0) - 1.0, v = (bits >> 16) * (2.0 / 65535.0) - 1.0;
    const double y = 1.0 - std::fabs(u) - std::fabs(v);
    // Folded over where y is negative.
    const double fold = std::fmax(-y, 0.0);
    u -= std::copysign(fold, u);
    v -= std::copysign(fold, v);
    const double scale = 1.0 / std::sqrt(u * u + y * y + v * v);
    return {u * scale, y * scale, v * scale};
  }
};

/// How fast normals turn from one vertex to another, radians a metre, for vertices with a `point` and a
/// packed `normal`.
template <typename Vertex>
double TurnBetween(const Vertex& a, const Vertex& b) {
  const double length = (trVector(a.point) - trVector(b.point)).Length();
  return length > 0 ? (a.normal.Unpack() - b.normal.Unpack()).Length() / length : 0;
}

}  // namespace ovhost
