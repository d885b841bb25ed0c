// compute_normal and compute_terrain: the displaced surface's normal by finite differences of the input
// chain.
#pragma once

#include "core/shader.h"

/// What the two share: three points about the sample are displaced by the input, and the normal is that of
/// the triangle they land on.
class ComputeNormalBase : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return trSurfaceShader::HasDisplacement(); }
  unsigned char HasShade() override { return trSurfaceShader::HasShade(); }

 protected:
  explicit ComputeNormalBase(bool movesTexture) : movesTexture_(movesTexture) {}

  double patchSize_;             ///< side of the triangle, metres
  unsigned char smoothSurface_;  ///< the sample becomes the mean of the three

 private:
  const bool movesTexture_;  ///< whether the texture point is put on the displaced surface
};

class ComputeNormal : public ComputeNormalBase {
 public:
  ComputeNormal();
};

class ComputeTerrain : public ComputeNormalBase {
 public:
  ComputeTerrain();

 private:
  trDoubleHint patchHint_;
};
