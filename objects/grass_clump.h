// grass_clump: blades of a triangle each, for populations.
#pragma once

#include "core/scene_maker.h"

class GrassClump : public juObjectGenerator {
 public:
  GrassClump();
  long GenerateMesh(trScene& scene, long materialIndex) override;
  bool HasActiveMeshDisplacer() override { return false; }
  /// What the blades stay within, so that a preview doesn't draw numbers.
  trBoundingBox BoundingBoxL() override;

 private:
  bool AddBlade(trScene& scene, long materialIndex) const;

  long numberOfBlades_;
  double clumpDiameter_, bladeLength_;
  trDoubleHint diameterHint_;
};
