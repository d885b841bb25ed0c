// Colours: linear render-space triples and the colour a user sets.
#pragma once

#include <algorithm>

/// Linear red, green and blue of the render space (Rec. 709 primaries).
struct trFCol {
  float r = 0, g = 0, b = 0;

  constexpr trFCol() = default;
  constexpr explicit trFCol(float grey) : r(grey), g(grey), b(grey) {}
  constexpr trFCol(float r_, float g_, float b_) : r(r_), g(g_), b(b_) {}

  float& operator[](int i) { return i == 0 ? r : i == 1 ? g : b; }
  constexpr float operator[](int i) const { return i == 0 ? r : i == 1 ? g : b; }

  constexpr trFCol operator+(const trFCol& c) const { return {r + c.r, g + c.g, b + c.b}; }
  constexpr trFCol operator-(const trFCol& c) const { return {r - c.r, g - c.g, b - c.b}; }
  constexpr trFCol operator*(const trFCol& c) const { return {r * c.r, g * c.g, b * c.b}; }
  constexpr trFCol operator*(float s) const { return {r * s, g * s, b * s}; }
  trFCol& operator+=(const trFCol& c) { return *this = *this + c; }
  trFCol& operator*=(const trFCol& c) { return *this = *this * c; }
  trFCol& operator*=(float s) { return *this = *this * s; }
  constexpr bool operator==(const trFCol& c) const { return r == c.r && g == c.g && b == c.b; }
  constexpr bool operator!=(const trFCol& c) const { return !(*this == c); }

  constexpr bool IsBlack() const { return r == 0 && g == 0 && b == 0; }
  constexpr float MaxChannel() const { return std::max(r, std::max(g, b)); }
  constexpr float MinChannel() const { return std::min(r, std::min(g, b)); }
};

constexpr trFCol operator*(float s, const trFCol& c) { return c * s; }

/// Luminance of masks and functions: Rec. 709 weights as this system has always rounded them, summed in this
/// order.
constexpr float Luminance(const trFCol& c) { return 0.2125f * c.r + 0.7152f * c.g + 0.0724f * c.b; }

/// trFCol with a fourth channel (alpha, or the weight of a voxel).
struct trF4Col {
  float r = 0, g = 0, b = 0, a = 0;

  constexpr trF4Col() = default;
  constexpr trF4Col(float r_, float g_, float b_, float a_) : r(r_), g(g_), b(b_), a(a_) {}
  constexpr trF4Col operator+(const trF4Col& c) const { return {r + c.r, g + c.g, b + c.b, a + c.a}; }
  constexpr trF4Col operator*(float s) const { return {r * s, g * s, b * s, a * s}; }
};

/// A colour as the user set it, stored linear; text form "r g b".
struct trManRgb {
  float r = 0, g = 0, b = 0;
  /// Force colours are data (densities, decay rates): no view or colour-space conversion ever touches them.
  bool isForceData = false;

  constexpr trManRgb() = default;
  constexpr trManRgb(float r_, float g_, float b_, bool force = false)
      : r(r_), g(g_), b(b_), isForceData(force) {}
  constexpr explicit trManRgb(const trFCol& c) : r(c.r), g(c.g), b(c.b) {}

  /// The colour in linear render space.
  constexpr trFCol ToRender() const { return {r, g, b}; }
  /// This colour moved towards `target` by `t`: 0 keeps it, 1 gives the target.
  constexpr trFCol BlendedTo(const trFCol& target, double t) const {
    return ToRender() + (target - ToRender()) * static_cast<float>(t);
  }
  constexpr bool operator==(const trManRgb& c) const { return r == c.r && g == c.g && b == c.b; }
};

/// A linear grey.
constexpr trManRgb trRgbLinear709(float grey) { return {grey, grey, grey}; }
