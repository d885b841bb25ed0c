// The swirl about an axis: vortex_warp_shader for texture space, vortex_vector for any vector.
#pragma once

#include "core/preview.h"
#include "core/shader.h"

/// The swirl's parameters, as both of its nodes declare them, and what they do.
class Vortex {
 public:
  void Declare(trBase* node);
  /// `point` turned about the axis, the less the farther off it is.
  trVector Turned(const trVector& point) const;
  const trVector& Centre() const { return centre_; }
  double Radius() const { return radius_; }

 private:
  trVector centre_;
  double radius_, vorticity_;
  unsigned char reverseDirection_, xAxis_, yAxis_, zAxis_;
};

class VortexWarpShader : public trSurfaceShader, public juPreviewHandler {
 public:
  VortexWarpShader();
  trPreviewHandler* PreviewHandler() override { return this; }
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

  // The preview shows the ball in which the swirl turns most.
  trBoundingBox BoundingBoxL() override;
  void MoveHandlePositionT(const trVector& delta) override;

 private:
  Vortex vortex_;
};

/// vortex_vector: turns a vector as the swirl turns points.
class VortexVector : public trVectorFunction {
 public:
  VortexVector();
  trVector VectorValue(trShadingInterface& si) override;

 private:
  trShaderLink input_;
  trVector constant_;
  Vortex vortex_;
};
