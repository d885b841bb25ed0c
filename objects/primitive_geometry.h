// cube_geometry_shader and octahedron_geometry_shader: round the edges of what their objects are made of.
#pragma once

#include "core/shader.h"

/// Where a point of a solid's surface goes when its edges are rounded, and the normal there. Object space.
struct RoundedPoint {
  trVector position, normal;
};

/// Of a box of `size` about the origin: what lies at `radius` from the box within, along each axis.
RoundedPoint RoundedBox(const trVector& p, const trVector& size, const trVector& radius);
/// Of the octahedron with corners at 1 on the axes: what lies as far as the faces from the octahedron of size
/// 1 - `roundness` within. At 1 it is the ball that touches the faces.
RoundedPoint RoundedOctahedron(const trVector& p, double roundness);

class PrimitiveGeometryShader : public trGeometryShader {
 public:
  long Displace(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }

 protected:
  virtual RoundedPoint Rounded(const trVector& p) const = 0;
};

class CubeGeometryShader : public PrimitiveGeometryShader {
 public:
  CubeGeometryShader();

 protected:
  RoundedPoint Rounded(const trVector& p) const override { return RoundedBox(p, size_, roundRadius_); }

 private:
  trVector size_, roundRadius_;
};

class OctahedronGeometryShader : public PrimitiveGeometryShader {
 public:
  OctahedronGeometryShader();

 protected:
  RoundedPoint Rounded(const trVector& p) const override { return RoundedOctahedron(p, roundness_); }

 private:
  double roundness_;
};
