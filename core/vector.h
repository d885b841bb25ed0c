// Points, directions and normals: plain values of two or three components, with the usual operations.
#pragma once

#include <cmath>

/// Three doubles; metres where it is a point of the world.
struct trVector {
  double x = 0, y = 0, z = 0;

  constexpr trVector() = default;
  constexpr trVector(double x_, double y_, double z_) : x(x_), y(y_), z(z_) {}

  double& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
  constexpr double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }

  constexpr trVector operator+(const trVector& b) const { return {x + b.x, y + b.y, z + b.z}; }
  constexpr trVector operator-(const trVector& b) const { return {x - b.x, y - b.y, z - b.z}; }
  constexpr trVector operator*(const trVector& b) const { return {x * b.x, y * b.y, z * b.z}; }
  constexpr trVector operator*(double s) const { return {x * s, y * s, z * s}; }
  constexpr trVector operator/(double s) const { return {x / s, y / s, z / s}; }
  constexpr trVector operator-() const { return {-x, -y, -z}; }
  trVector& operator+=(const trVector& b) { return *this = *this + b; }
  trVector& operator-=(const trVector& b) { return *this = *this - b; }
  trVector& operator*=(double s) { return *this = *this * s; }
  constexpr bool operator==(const trVector& b) const { return x == b.x && y == b.y && z == b.z; }
  constexpr bool operator!=(const trVector& b) const { return !(*this == b); }

  double Length() const { return std::sqrt(x * x + y * y + z * z); }
  constexpr double LengthSquared() const { return x * x + y * y + z * z; }
};

constexpr trVector operator*(double s, const trVector& v) { return v * s; }
constexpr double Dot(const trVector& a, const trVector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
constexpr trVector Cross(const trVector& a, const trVector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/// The one way vectors are normalised: lengths up to 1e-12 are multiplied by 1e12, so zero stays zero.
inline trVector Normalised(const trVector& v) {
  const double length = v.Length();
  return v * (length > 1e-12 ? 1.0 / length : 1e12);
}

/// The single-precision form of trVector.
struct trFVector {
  float x = 0, y = 0, z = 0;

  constexpr trFVector() = default;
  constexpr trFVector(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}
  explicit constexpr trFVector(const trVector& v)
      : x(static_cast<float>(v.x)), y(static_cast<float>(v.y)), z(static_cast<float>(v.z)) {}
  constexpr operator trVector() const { return {x, y, z}; }
};

/// Two doubles: latitude and longitude, sizes in a plane.
struct tr2Vector {
  double x = 0, y = 0;

  constexpr tr2Vector() = default;
  constexpr tr2Vector(double x_, double y_) : x(x_), y(y_) {}

  constexpr tr2Vector operator+(const tr2Vector& b) const { return {x + b.x, y + b.y}; }
  constexpr tr2Vector operator-(const tr2Vector& b) const { return {x - b.x, y - b.y}; }
  constexpr tr2Vector operator*(double s) const { return {x * s, y * s}; }
  constexpr bool operator==(const tr2Vector& b) const { return x == b.x && y == b.y; }
};
