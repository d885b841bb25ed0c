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

}  // namespace ovhost
