// What parts have in common.
#include "host/render/parts/surface_part.h"

namespace ovhost {

void SurfacePart::MapToPrimitive(double& u, double& v) const {
  // The far half of the square, folded onto the triangle.
  if (!(u + v > 1)) return;
  u = 1 - u;
  v = 1 - v;
}

const trMaterial* MaterialOf(const trScene& scene, const trTri& tri) {
  const trMaterial* material = scene.GetPMaterial(tri.material);
  return material ? material : scene.GetPMaterial(1);
}

std::int32_t NumberOf(const trScene& scene, const trMaterial* material) {
  const long count = scene.NumMaterials();
  for (long i = 1; i <= count; ++i)
    if (scene.GetPMaterial(i) == material) return static_cast<std::int32_t>(i);
  return 0;
}

}  // namespace ovhost
