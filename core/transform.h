// Affine transforms, 4 by 4 matrices, boxes and rotations. Points are columns: Mul(a, b) applies b first.
#pragma once

#include <array>
#include <limits>

#include "core/guarded.h"
#include "core/vector.h"

/// Row-major 4 by 4 matrix acting on column vectors; the last row of an affine matrix is 0 0 0 1.
template <typename T>
struct trMatrix4x4 {
  std::array<std::array<T, 4>, 4> m{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};

  trMatrix4x4 Mul(const trMatrix4x4& b) const {
    trMatrix4x4 r;
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        T sum = 0;
        for (int k = 0; k < 4; ++k) sum += m[i][k] * b.m[k][j];
        r.m[i][j] = sum;
      }
    return r;
  }
  trMatrix4x4 operator*(const trMatrix4x4& b) const { return Mul(b); }

  /// Inverse by Gauss-Jordan elimination with partial pivoting; the identity where there is none.
  trMatrix4x4 Inverse() const {
    trMatrix4x4 a = *this, inverse;
    for (int column = 0; column < 4; ++column) {
      int pivot = column;
      for (int row = column + 1; row < 4; ++row)
        if (std::fabs(a.m[row][column]) > std::fabs(a.m[pivot][column])) pivot = row;
      if (a.m[pivot][column] == 0) return {};
      std::swap(a.m[pivot], a.m[column]);
      std::swap(inverse.m[pivot], inverse.m[column]);
      const T scale = 1 / a.m[column][column];
      for (int k = 0; k < 4; ++k) {
        a.m[column][k] *= scale;
        inverse.m[column][k] *= scale;
      }
      for (int row = 0; row < 4; ++row) {
        if (row == column) continue;
        const T factor = a.m[row][column];
        for (int k = 0; k < 4; ++k) {
          a.m[row][k] -= factor * a.m[column][k];
          inverse.m[row][k] -= factor * inverse.m[column][k];
        }
      }
    }
    return inverse;
  }

  trVector Point(const trVector& p) const { return Apply(p, 1); }
  trVector Direction(const trVector& d) const { return Apply(d, 0); }
  /// The product of the transposed upper 3 by 3 part and `n`: with an inverse matrix this transforms normals.
  trVector TransposedDirection(const trVector& n) const {
    return {m[0][0] * n.x + m[1][0] * n.y + m[2][0] * n.z, m[0][1] * n.x + m[1][1] * n.y + m[2][1] * n.z,
            m[0][2] * n.x + m[1][2] * n.y + m[2][2] * n.z};
  }
  trVector Translation() const { return {double(m[0][3]), double(m[1][3]), double(m[2][3])}; }

  /// Writes the 16 entries in OpenGL's column-major order.
  void GetOpenGL(T* out) const {
    for (int column = 0; column < 4; ++column)
      for (int row = 0; row < 4; ++row) out[column * 4 + row] = m[row][column];
  }

 private:
  trVector Apply(const trVector& v, double w) const {
    return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z + m[0][3] * w,
            m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z + m[1][3] * w,
            m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z + m[2][3] * w};
  }
};

/// An affine transform kept with its inverse, so that neither direction is ever solved for in a loop.
template <typename T>
struct trTransform {
  trMatrix4x4<T> forward, inverse;

  trTransform() = default;
  explicit trTransform(const trMatrix4x4<T>& f) : forward(f), inverse(f.Inverse()) {}
  trTransform(const trMatrix4x4<T>& f, const trMatrix4x4<T>& i) : forward(f), inverse(i) {}

  /// `b` first, then this.
  trTransform operator*(const trTransform& b) const { return {forward * b.forward, b.inverse * inverse}; }
  trVector Point(const trVector& p) const { return forward.Point(p); }
  trVector Direction(const trVector& d) const { return forward.Direction(d); }
  trVector Normal(const trVector& n) const { return Normalised(inverse.TransposedDirection(n)); }
  trTransform Inverse() const { return {inverse, forward}; }
  /// Moves a ray (origin and direction, in place) by the transform; the direction isn't normalised.
  void Ray(trVector& origin, trVector& direction) const {
    origin = Point(origin);
    direction = Direction(direction);
  }
  void GetOpenGL(T* out) const { forward.GetOpenGL(out); }
};

inline trTransform<double> trTranslate(const trVector& t) {
  trTransform<double> r;
  for (int i = 0; i < 3; ++i) {
    r.forward.m[i][3] = t[i];
    r.inverse.m[i][3] = -t[i];
  }
  return r;
}

/// Scales the axes; a factor of magnitude up to 1e-12 has the guarded reciprocal in the inverse.
inline trTransform<double> trScale(double x, double y, double z) {
  trTransform<double> r;
  const trVector s(x, y, z);
  for (int i = 0; i < 3; ++i) {
    r.forward.m[i][i] = s[i];
    r.inverse.m[i][i] = SafeReciprocal(s[i]);
  }
  return r;
}

namespace detail {
inline trTransform<double> RotateInPlane(int a, int b, double radians) {
  trTransform<double> r;
  const double c = std::cos(radians), s = std::sin(radians);
  r.forward.m[a][a] = r.forward.m[b][b] = r.inverse.m[a][a] = r.inverse.m[b][b] = c;
  r.forward.m[a][b] = r.inverse.m[b][a] = -s;
  r.forward.m[b][a] = r.inverse.m[a][b] = s;
  return r;
}
}  // namespace detail

/// Right-handed rotations about the axes, in radians: RotateX turns +y towards +z, RotateY +z towards +x,
/// RotateZ +x towards +y.
inline trTransform<double> trRotateX(double radians) { return detail::RotateInPlane(1, 2, radians); }
inline trTransform<double> trRotateY(double radians) { return detail::RotateInPlane(2, 0, radians); }
inline trTransform<double> trRotateZ(double radians) { return detail::RotateInPlane(0, 1, radians); }

/// Euler angles in degrees, applied X, then Y, then Z.
struct trRotation {
  trVector degrees;
  trTransform<double> GetTransform() const {
    return trRotateZ(degrees.z * kDegreesToRadians) * trRotateY(degrees.y * kDegreesToRadians) *
           trRotateX(degrees.x * kDegreesToRadians);
  }
};

/// An axis-aligned box; empty until something is put in.
struct trBoundingBox {
  trVector min{std::numeric_limits<double>::max(), std::numeric_limits<double>::max(),
               std::numeric_limits<double>::max()};
  trVector max{-std::numeric_limits<double>::max(), -std::numeric_limits<double>::max(),
               -std::numeric_limits<double>::max()};

  trBoundingBox() = default;
  trBoundingBox(const trVector& a, const trVector& b) {
    Union(a);
    Union(b);
  }
  static trBoundingBox FromCentre(const trVector& centre, const trVector& size) {
    return {centre - size * 0.5, centre + size * 0.5};
  }
  bool IsEmpty() const { return min.x > max.x; }
  trVector Centre() const { return IsEmpty() ? trVector() : (min + max) * 0.5; }
  trVector Size() const { return IsEmpty() ? trVector() : max - min; }
  void Union(const trVector& p) {
    for (int i = 0; i < 3; ++i) {
      min[i] = std::fmin(min[i], p[i]);
      max[i] = std::fmax(max[i], p[i]);
    }
  }
};
