// The drops told step by step, one drop and one draw after another: what the fast walks are compared with.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <vector>

namespace reference {

struct Settings {
  int border = 2;
  bool nearestCentre = false;  // fix_gradient_bug
  double flowDistance = 100, duration = 1, erosionPower = 0.25, deposition = 0.5, depositionRate = 0;
  double diffusion = 3;
  bool adapts = true, slips = false;
  double slipAngle = 45;
};

struct Raster {
  int w, h;
  std::vector<float> z;
  float& At(int x, int y) { return z[size_t(std::clamp(y, 0, h - 1)) * w + std::clamp(x, 0, w - 1)]; }
};

inline int ToInt(double v) { return v >= 2147483647.0 ? INT_MAX : v > -2147483648.0 ? int(v) : INT_MIN; }
inline double Inverse(double l) { return std::fabs(l) > 1e-12 ? 1 / l : l < 0 ? -1e12 : 1e12; }

/// Cone of weights over (2 half + 1)^2 points.
inline std::vector<float> Cone(float rx, float ry, int hx, int hy) {
  std::vector<float> weights;
  for (int j = -hy; j <= hy; ++j)
    for (int i = -hx; i <= hx; ++i) {
      const float x2 = float(i * i) / ((rx + 1) * (rx + 1)), y2 = float(j * j) / ((ry + 1) * (ry + 1));
      weights.push_back(std::max(0.0f, 1.0f - std::sqrt(x2 + y2)));
    }
  return weights;
}

inline void Gradient(Raster& r, int cx, int cy, double& gx, double& gy) {
  static const std::vector<float> cone = Cone(1.5f, 1.5f, 2, 2);
  const float c0 = r.At(cx, cy);
  gx = gy = 0;
  for (int row = 0; row < 5; ++row)
    for (int column = 0; column < 5; ++column) {
      const int dx = column - 2, dy = row - 2;
      const float weight = cone[row * 5 + column];
      if (weight == 0 || cy + dy == cy || cx + dx == cx) continue;
      const float difference = r.At(cx + dx, cy + dy) - c0;
      const double inverse = 1 / std::sqrt(double(dy * dy + dx * dx));
      const double t = double(difference) * (inverse * inverse) * double(weight);
      gx += dx * t;
      gy += dy * t;
    }
}

/// The noise of a step and its direction, common to all drops. `age` multiplies the diffusion.
template <typename Draw>
void Direction(const Settings& s, Draw u, double age, double& gx, double& gy, double& dirx, double& diry) {
  gy += (u() - 0.5) * 0.001;
  gx += (u() - 0.5) * 0.001;
  const double m = std::sqrt(gy * gy + gx * gx);
  const double a = u() - 0.5, b = u() - 0.5;
  float limit = 100000;
  if (s.slips && std::fabs(s.slipAngle) < 90) limit = float(std::tan(s.slipAngle * 0.017453292519943278));
  if (s.slips && m > limit) {
    dirx = b;
    diry = a;
  } else {
    const double wander = s.adapts ? s.diffusion * m : s.diffusion;
    dirx = -gx * Inverse(m) + b * age * wander;
    diry = -gy * Inverse(m) + a * age * wander;
  }
  const double inverse = Inverse(std::sqrt(dirx * dirx + diry * diry));
  dirx *= inverse;
  diry *= inverse;
}

inline int Drops(const Raster& r, const Settings& s) { return int(double(r.w * r.h) * s.duration); }

/// Bilinear drops.
inline void ErodeV3(Raster& r, const Settings& s, unsigned seed = 0) {
  std::mt19937 twister(seed);
  const auto u = [&] { return double(twister()) / 4294967295.0; };
  const int w = r.w, ht = r.h;
  for (int drop = 0, drops = Drops(r, s); drop < drops; ++drop) {
    const int x0 = int(std::min(u() * w, w - 1.0));
    const int y0 = int(std::min(u() * ht, ht - 1.0));
    float x = x0, y = y0, h = r.At(x0, y0), carried = 0, d = 0, life = 1;
    int cellX = x0, cellY = y0;
    size_t corner[4];
    for (size_t& c : corner) c = size_t(y0) * w + x0;
    float weight[4] = {1, 0, 0, 0};
    double gx = 0, gy = 0;
    bool stopped = false;
    const int steps = ToInt(std::exp((u() - 0.75) * 10.0) * s.flowDistance);
    const auto blend = [&] {
      for (int k = 0; k < 4; ++k) r.z[corner[k]] = (1 - weight[k]) * r.z[corner[k]] + h * weight[k];
    };
    for (int i = 0; i < steps && !stopped; ++i) {
      const int remaining = steps - i;
      if (i % 2 == 0) {
        if (s.nearestCentre) {
          cellX = std::clamp(ToInt(x + 0.5f), 0, w - 1);
          cellY = std::clamp(ToInt(y + 0.5f), 0, ht - 1);
        }
        Gradient(r, cellX, cellY, gx, gy);
      }
      double dirx, diry;
      Direction(s, u, 1, gx, gy, dirx, diry);
      x = float(double(x) + dirx);
      y = float(double(y) + diry);
      int ix = ToInt(std::floor(x)), iy = ToInt(std::floor(y));
      int farX, farY;
      if (s.border == 2) {
        if (ix < 0) x += w, ix += w;
        if (iy < 0) y += ht, iy += ht;
        if (ix > w - 1) x -= w, ix -= w;
        if (iy > ht - 1) y -= ht, iy -= ht;
        cellX = std::clamp(ix, 0, w - 1);
        cellY = std::clamp(iy, 0, ht - 1);
      } else {
        const long reach = s.border == 0 ? 1 : remaining, over = s.border == 0 ? 0 : remaining - 1L;
        if (s.border == 0) stopped = ix < -1 || ix > w || iy < -1 || iy > ht;
        if (s.border == 1) stopped = ix < -reach || ix > over + w || iy < -reach || iy > over + ht;
        cellX = std::clamp(ix, 0, w - 1);
        cellY = std::clamp(iy, 0, ht - 1);
      }
      farX = int(std::clamp(ix + 1L, 0L, w - 1L));
      farY = int(std::clamp(iy + 1L, 0L, ht - 1L));
      const size_t next[4] = {size_t(cellY) * w + cellX, size_t(cellY) * w + farX, size_t(farY) * w + cellX,
                              size_t(farY) * w + farX};
      const float fx = x - float(ix), fy = y - float(iy);
      const float nextWeight[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), fy * (1 - fx), fy * fx};
      const auto interpolated = [&] {
        return nextWeight[0] * r.z[next[0]] + nextWeight[1] * r.z[next[1]] + nextWeight[2] * r.z[next[2]] +
               nextWeight[3] * r.z[next[3]];
      };

      const float q = std::min(1.0f, (1 / float(remaining)) * (std::max(0.0f, float(s.depositionRate)) + 1));
      const float laid = q * carried;
      if (laid > 0 && d > 0) {
        carried -= laid;
        h = float(std::min(double(d), double(laid) * s.deposition) + double(h));
        blend();
      }
      d = h - interpolated();
      if (d > 0) {
        const float e = std::min(0.5f, float(s.erosionPower) * life) * d;
        carried += e;
        h -= e;
        blend();
        d -= e;
      }
      std::copy(next, next + 4, corner);
      std::copy(nextWeight, nextWeight + 4, weight);
      h = interpolated();
      life = float(double(life) - 1.0 / steps);
    }
  }
}

/// Whole-cell drops: the second version, and the early experiment.
inline void ErodeWholeCells(Raster& r, const Settings& s, bool experiment) {
  std::mt19937 twister(0);
  const auto u = [&] { return double(twister()) / 4294967295.0; };
  const int w = r.w, ht = r.h;
  for (int drop = 0, drops = Drops(r, s); drop < drops; ++drop) {
    int cellX = int(std::min(w * u(), w - 1.0)), cellY = int(std::min(ht * u(), ht - 1.0));
    float x = cellX, y = cellY, carried = 0, d = 0, life = 1;
    float* old = &r.At(cellX, cellY);
    double gx = 0, gy = 0;
    const int steps = ToInt(std::exp((u() - 0.75) * 10.0) * s.flowDistance);
    for (int i = 0; i < steps; ++i) {
      const int remaining = steps - i;
      if (i % 2 == 0) Gradient(r, cellX, cellY, gx, gy);
      double dirx, diry;
      Direction(s, u, experiment ? i : 1, gx, gy, dirx, diry);
      if (experiment) {
        x = float(double(x) + dirx);
        y = float(double(y) + diry);
      } else {
        x += float(dirx);
        y += float(diry);
      }
      int ix = ToInt(std::floor(double(x) + 0.5)), iy = ToInt(std::floor(double(y) + 0.5));
      if (ix < 0) x += w, ix += w;
      if (iy < 0) y += ht, iy += ht;
      if (ix > w - 1) x -= w, ix -= w;
      const bool overTheTop = iy > ht - 1;
      if (overTheTop) y -= ht, iy -= ht;
      cellX = std::clamp(ix, 0, w - 1);
      cellY = std::clamp(iy, 0, ht - 1);
      float* now = &r.At(cellX, cellY);
      if (!experiment) {
        const float rate = float(s.depositionRate / s.flowDistance);
        const float even = carried / float(remaining);
        const float part = std::clamp(rate / (d - rate), 0.0f, 1.0f);
        const float laid = even + (carried - even) * part;
        if (laid > 0 && d > 0) {
          carried -= laid;
          *old = float(double(*old) + std::min(double(d), double(laid) * s.deposition));
        }
        d = *old - *now;
        if (d > 0) {
          const float e = std::min(0.5f, float(s.erosionPower) * life) * d;
          carried += e;
          *old -= e;
          d -= e;
        }
        old = now;
        life -= 1.0f / float(steps);
      } else {
        if (!overTheTop) {
          const float laid = carried / float(remaining);
          if (laid > 0) {
            carried -= laid;
            *old = float(double(*old) + double(laid) * s.deposition);
          }
          const float t = *old - *now;
          if (t > 0) {
            const float e = float(double(t) * s.erosionPower * double(life));
            carried += e;
            *old -= e;
          }
          old = now;
        }
        life = float(double(life) - 1.0 / steps);
      }
    }
  }
}

/// The filter without drops; radii in grid points.
inline std::vector<float> SmoothErode(Raster r, float rx, float ry) {
  std::mt19937 twister(0);
  const auto u = [&] { return double(twister()) / 4294967295.0; };
  const int hx = int(std::ceil(rx)), hy = int(std::ceil(ry));
  const std::vector<float> cone = Cone(rx, ry, hx, hy);
  std::vector<float> result;
  for (int y = 0; y < r.h; ++y)
    for (int x = 0; x < r.w; ++x) {
      const float c = r.At(x, y);
      double gx = 0, gy = 0;
      const auto forAll = [&](const auto& f) {
        for (int dy = -hy, k = 0; dy <= hy; ++dy)
          for (int dx = -hx; dx <= hx; ++dx, ++k)
            if (cone[k] != 0) f(dx, dy, cone[k]);
      };
      forAll([&](int dx, int dy, float k) {
        if (dx == 0 || dy == 0) return;
        const float v = r.At(x + dx, y + dy) - c;
        gx += double(v / float(dx) * k);
        gy += double(v / float(dy) * k);
      });
      gy += (u() - 0.5) * 0.0001;
      gx += (u() - 0.5) * 0.0001;
      const double inverse = Inverse(std::sqrt(gx * gx + gy * gy)), nx = -gx * inverse, ny = -gy * inverse;
      float out = c;
      forAll([&](int dx, int dy, float k) {
        const double along = dy * ny + dx * nx;
        if (along < 0) return;
        const double a = dy - along * ny, b = dx - along * nx;
        const float f = float(std::min(1.0, 1 - std::sqrt(a * a + b * b) * 0.5));
        if (f > 0) out = std::min(out, k * f * r.At(x + dx, y + dy) + (1 - k * f) * c);
      });
      result.push_back(out);
    }
  return result;
}

}  // namespace reference
