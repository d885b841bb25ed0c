// poly_sphere: a ball of triangles along circles of longitude and latitude.
#pragma once

#include "core/scene_maker.h"

/// Of radius 1 about the origin, poles along y. Texture vertices run from 0 to 1 eastward, seen from outside
/// with north up, and from the south pole to the north pole.
class PolySphere : public juObjectGenerator {
 public:
  PolySphere();
  long GenerateMesh(trScene& scene, long materialIndex) override;

 private:
  long divisionsX_, divisionsY_;
  unsigned char generateUVs_, recalculateNormals_;
};
