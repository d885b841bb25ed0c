// sphere_geometry_shader.
#include "objects/sphere_geometry_shader.h"

SphereGeometryShader::SphereGeometryShader() {
  Param(centre_, "centre", trVector()).About("Middle of the sphere, metres.");
  Param(radius_, "radius", 1.0).About("Radius of the sphere, metres.");
  Param(normalScale_, "normal_scale", trVector(1, 1, 1))
      .About("Factors of the normal along each axis; 1, 1, 1 leaves it the sphere's.");
}

long SphereGeometryShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const trVector normal = Normalised(Inverse().Point(si.P()) - centre_);
  si.P() = Forward().Point(centre_ + normal * std::fabs(radius_));
  si.N() = Normalised(Inverse().TransposedDirection(normal * normalScale_));
  si.Pg() = si.Pt() = si.P();
  si.Ng() = si.Nt() = si.Ni() = si.N();
  return 1;
}
