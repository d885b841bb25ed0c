// Packed normals and base points of diced surfaces.
#include "host/render/parts/grid_mesh.h"

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

trVector GridMesh::BasePoint(std::uint32_t quad, double u, double v) const {
  const trVector* c = &quadCorners[4 * quad];
  const trVector low = c[0] * (1 - u) + c[1] * u, high = c[3] * (1 - u) + c[2] * u;
  return low * (1 - v) + high * v;
}

}  // namespace ovhost
