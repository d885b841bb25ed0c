// sphere_geometry_shader: makes a ball out of whatever mesh stands around its centre.
#pragma once

#include "core/shader.h"

/// Centre and radius are in the object's space. A planet leaves the object's transform the identity, so there
/// they are the planet's own, in the world.
class SphereGeometryShader : public trGeometryShader {
 public:
  SphereGeometryShader();
  long Displace(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }

 private:
  trVector centre_, normalScale_;
  double radius_;
};
