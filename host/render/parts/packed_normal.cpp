// Packing normals.
#include "host/render/parts/packed_normal.h"

#include <limits>

namespace ovhost {

PackedNormal::PackedNormal(const trVector& n) {
  const double sum = std::fabs(n.x) + std::fabs(n.y) + std::fabs(n.z);
  if (!(sum > 0 && sum <= std::numeric_limits<double>::max())) {
    *this = PackedNormal(trVector(0, 1, 0));
    return;
  }
  double u = n.x / sum, v = n.z / sum;
  if (n.y < 0) {
    const double folded = (1 - std::fabs(v)) * (u < 0 ? -1 : 1);
    v = (1 - std::fabs(u)) * (v < 0 ? -1 : 1);
    u = folded;
  }
  const auto quantised = [](double x) { return static_cast<std::uint32_t>((x * 0.5 + 0.5) * 65535.0 + 0.5); };
  bits = quantised(u) | quantised(v) << 16;
}

}  // namespace ovhost
