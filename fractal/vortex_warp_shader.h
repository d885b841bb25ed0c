// vortex_warp_shader: swirls texture space about an axis.
#pragma once

#include "core/preview.h"
#include "core/shader.h"

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
  trVector Swirled(const trVector& pt) const;

  trVector centre_;
  double radius_, vorticity_;
  unsigned char reverseDirection_, xAxis_, yAxis_, zAxis_;
};
