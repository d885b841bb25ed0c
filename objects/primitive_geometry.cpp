// cube_geometry_shader and octahedron_geometry_shader.
#include "objects/primitive_geometry.h"

#include <algorithm>

#include "core/guarded.h"

namespace {

/// Shorter ways than this have no direction: the point lies on a sharp surface.
constexpr double kNoWay = 1e-12;

/// The point of the octahedron |x| + |y| + |z| <= `size` nearest to `p` outside of it: all magnitudes
/// lessened by one amount, down to 0 (Duchi et al., Efficient Projections onto the l1-Ball, 2008).
trVector NearestOfOctahedron(const trVector& p, double size) {
  double magnitudes[3] = {std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)};
  std::sort(magnitudes, magnitudes + 3);
  double sum = 0, less = 0;
  for (int kept = 1; kept <= 3; ++kept) {
    sum += magnitudes[3 - kept];
    const double shared = (sum - size) / kept;
    if (shared >= magnitudes[3 - kept]) break;
    less = shared;
  }
  trVector nearest;
  for (int i = 0; i < 3; ++i)
    nearest[i] = std::copysign(std::fmax(std::fabs(p[i]) - std::fmax(less, 0.0), 0.0), p[i]);
  return nearest;
}

}  // namespace

RoundedPoint RoundedBox(const trVector& p, const trVector& size, const trVector& radius) {
  trVector nearest, r, way, faceNormal;
  int face = 0;
  double outmost = -1;
  for (int i = 0; i < 3; ++i) {
    const double half = std::fabs(size[i]) * 0.5;
    r[i] = std::clamp(radius[i], 0.0, half);
    nearest[i] = std::clamp(p[i], r[i] - half, half - r[i]);
    way[i] = r[i] > 0 ? (p[i] - nearest[i]) / r[i] : 0;
    const double out = GuardedDivide(std::fabs(p[i]), half);
    if (out > outmost) {
      outmost = out;
      face = i;
    }
  }
  if (way.Length() <= kNoWay) {
    faceNormal[face] = p[face] < 0 ? -1 : 1;
    return {p, faceNormal};
  }
  const trVector onBall = Normalised(way);
  // Where a radius is 0, the rounding has no extent along that axis.
  trVector normal;
  for (int i = 0; i < 3; ++i) normal[i] = r[i] > 0 ? onBall[i] / r[i] : 0;
  return {nearest + onBall * r, Normalised(normal)};
}

RoundedPoint RoundedOctahedron(const trVector& p, double roundness) {
  const double rounded = std::clamp(roundness, 0.0, 1.0), radius = rounded / std::sqrt(3.0);
  const trVector nearest = NearestOfOctahedron(p, 1 - rounded), way = p - nearest;
  if (radius <= kNoWay || way.Length() <= kNoWay)
    return {p, Normalised({p.x < 0 ? -1.0 : 1.0, p.y < 0 ? -1.0 : 1.0, p.z < 0 ? -1.0 : 1.0})};
  const trVector normal = Normalised(way);
  return {nearest + normal * radius, normal};
}

long PrimitiveGeometryShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const RoundedPoint rounded = Rounded(Inverse().Point(si.P()));
  si.P() = Forward().Point(rounded.position);
  si.N() = Normalised(Inverse().TransposedDirection(rounded.normal));
  si.Pg() = si.Pt() = si.P();
  si.Ng() = si.Nt() = si.Ni() = si.N();
  return 1;
}

CubeGeometryShader::CubeGeometryShader() {
  Param(size_, "size", trVector(1, 1, 1))
      .About("Lengths of the box's edges in metres, before the object's scale.");
  Param(roundRadius_, "round_radius", trVector(0.1, 0.1, 0.1))
      .About("Radius of the rounded edges along each axis in metres; 0 is sharp, half a side all round.");
}

OctahedronGeometryShader::OctahedronGeometryShader() {
  Param(roundness_, "roundness", 0.2)
      .About("How far edges and corners are rounded, from 0, sharp, to 1, a ball that touches the faces.");
}
