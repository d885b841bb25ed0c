// Heights between grid points: five kernels, all separable, and the gradients they imply.
#include <algorithm>
#include <array>
#include <cmath>

#include "core/heightfield.h"

namespace {

/// A coordinate on the raster: the grid point at or before it, and how far past it.
struct Place {
  int cell;
  double fraction;  // 0 to 1

  Place(double position, int count) {
    const double last = count - 1.0;
    // Written so that what isn't a number becomes 0.
    const double clamped = position > 0 ? std::min(position, last) : 0.0;
    cell = std::min(static_cast<int>(clamped), std::max(count - 2, 0));
    fraction = clamped - cell;
  }
};

/// Weights of the grid points from `cell + kFirst` on, and their derivatives by position.
struct Linear {
  static constexpr int kTaps = 2, kFirst = 0;
  static void Weigh(double t, double* w) {
    w[0] = 1 - t;
    w[1] = t;
  }
  static void Derive(double, double* d) {
    d[0] = -1;
    d[1] = 1;
  }
};

/// Cubic Hermite basis: the two values, then the two slopes.
struct Hermite {
  double value0, value1, slope0, slope1;
  explicit Hermite(double t) {
    const double t2 = t * t, t3 = t2 * t;
    value1 = 3 * t2 - 2 * t3;
    value0 = 1 - value1;
    slope0 = t3 - 2 * t2 + t;
    slope1 = t3 - t2;
  }
  static Hermite Derivative(double t) {
    Hermite h(t);
    h.value1 = 6 * t - 6 * t * t;
    h.value0 = -h.value1;
    h.slope0 = 3 * t * t - 4 * t + 1;
    h.slope1 = 3 * t * t - 2 * t;
    return h;
  }
};

/// Slopes by central differences (Catmull and Rom 1974).
struct CatmullRom {
  static constexpr int kTaps = 4, kFirst = -1;
  static void Weigh(double t, double* w) { Combine(Hermite(t), w); }
  static void Derive(double t, double* d) { Combine(Hermite::Derivative(t), d); }

 private:
  static void Combine(const Hermite& h, double* w) {
    w[0] = -0.5 * h.slope0;
    w[1] = h.value0 - 0.5 * h.slope1;
    w[2] = h.value1 + 0.5 * h.slope0;
    w[3] = 0.5 * h.slope1;
  }
};

/// Slopes by the five-point difference, which is exact for cubics (Fornberg 1988).
struct Cubic {
  static constexpr int kTaps = 6, kFirst = -2;
  static void Weigh(double t, double* w) { Combine(Hermite(t), w); }
  static void Derive(double t, double* d) { Combine(Hermite::Derivative(t), d); }

 private:
  static void Combine(const Hermite& h, double* w) {
    constexpr double kNear = 8.0 / 12.0, kFar = 1.0 / 12.0;
    w[0] = kFar * h.slope0;
    w[1] = -kNear * h.slope0 + kFar * h.slope1;
    w[2] = h.value0 - kNear * h.slope1;
    w[3] = h.value1 + kNear * h.slope0;
    w[4] = -kFar * h.slope0 + kNear * h.slope1;
    w[5] = -kFar * h.slope1;
  }
};

/// Uniform cubic B-spline.
struct Smooth {
  static constexpr int kTaps = 4, kFirst = -1;
  static void Weigh(double t, double* w) {
    const double s = 1 - t;
    w[0] = s * s * s / 6;
    w[1] = 2.0 / 3 - t * t + t * t * t / 2;
    w[2] = 2.0 / 3 - s * s + s * s * s / 2;
    w[3] = t * t * t / 6;
  }
  static void Derive(double t, double* d) {
    const double s = 1 - t;
    d[0] = -s * s / 2;
    d[1] = -2 * t + 1.5 * t * t;
    d[2] = 2 * s - 1.5 * s * s;
    d[3] = t * t / 2;
  }
};

template <typename Kernel, bool kWithGradient>
double Interpolate(const trHeightfield& field, double x, double y, double* gradient) {
  constexpr int kTaps = Kernel::kTaps;
  const Place px(x, field.width), py(y, field.height);
  double wx[kTaps], wy[kTaps];
  Kernel::Weigh(px.fraction, wx);
  Kernel::Weigh(py.fraction, wy);

  // Sums along each row of taps, by the weights and by their derivatives.
  const int firstX = px.cell + Kernel::kFirst, firstY = py.cell + Kernel::kFirst;
  const bool isInside = firstX >= 0 && firstX + kTaps <= field.width;
  double dx[kTaps], sums[kTaps], slopes[kTaps];
  if constexpr (kWithGradient) Kernel::Derive(px.fraction, dx);
  for (int j = 0; j < kTaps; ++j) {
    const float* row = field.HfScanlineRaw(std::clamp(firstY + j, 0, field.height - 1));
    float taps[kTaps];
    if (isInside)
      std::copy_n(row + firstX, kTaps, taps);
    else
      for (int i = 0; i < kTaps; ++i) taps[i] = row[std::clamp(firstX + i, 0, field.width - 1)];
    sums[j] = slopes[j] = 0;
    for (int i = 0; i < kTaps; ++i) sums[j] += wx[i] * taps[i];
    if constexpr (kWithGradient)
      for (int i = 0; i < kTaps; ++i) slopes[j] += dx[i] * taps[i];
  }
  double value = 0;
  for (int j = 0; j < kTaps; ++j) value += wy[j] * sums[j];
  if constexpr (kWithGradient) {
    double dy[kTaps], gx = 0, gy = 0;
    Kernel::Derive(py.fraction, dy);
    for (int j = 0; j < kTaps; ++j) {
      gx += wy[j] * slopes[j];
      gy += dy[j] * sums[j];
    }
    *gradient = std::sqrt(gx * gx + gy * gy);
  }
  return value;
}

template <typename Kernel>
double Lookup(const trHeightfield& field, double x, double y, double* gradient) {
  if (gradient) *gradient = 0;
  if (!field.pixels) return 0;
  return gradient ? Interpolate<Kernel, true>(field, x, y, gradient)
                  : Interpolate<Kernel, false>(field, x, y, nullptr);
}

}  // namespace

double trHeightfield::HfZLookupNearest(const double& x, const double& y) const {
  if (!pixels) return 0;
  const Place px(x, width), py(y, height);
  return HfScanlineRaw(py.cell + (py.fraction >= 0.5))[px.cell + (px.fraction >= 0.5)];
}
double trHeightfield::HfZLookupLinear(const double& x, const double& y, double* gradient) const {
  return Lookup<Linear>(*this, x, y, gradient);
}
double trHeightfield::HfZLookupSmooth(const double& x, const double& y, double* gradient) const {
  return Lookup<Smooth>(*this, x, y, gradient);
}
double trHeightfield::HfZLookupCubic(const double& x, const double& y, double* gradient) const {
  return Lookup<Cubic>(*this, x, y, gradient);
}
double trHeightfield::HfZLookupCatmullRom(const double& x, const double& y, double* gradient) const {
  return Lookup<CatmullRom>(*this, x, y, gradient);
}
