// Noises of fixed seed for single lookups: value noise and its filtered form, cell noise, sharp noise, seed
// offsets.
#include <algorithm>

#include "core/noise.h"
#include "host/noise/box_filter.h"

using namespace ovnoise;

namespace {

// Each noise of fixed seed has its own, so that two of them never show the same features.
constexpr uint64_t kCellSeed = HashSeed(102), kOffsetSeed = HashSeed(103);
constexpr int kNoiseSeed = 104, kSharpSeed = 105;

/// -1 to 1 from a corner's summed hash.
double SignedValue(uint64_t sum) { return OneToTwo(MixCorner(sum)) * 2.0 - 3.0; }

/// Up to four lattice corners about a point on one axis: what each weighs, by itself and times the way from
/// the corner to the point (which a gradient's component multiplies).
struct AxisWeights {
  int count;
  uint64_t hash[4];
  double weight[4], moment[4];
};

AxisWeights PointWeights(int64_t cell, double fraction, int axis) {
  const double fade = Fade(fraction);
  return {2,
          {HashAxis(cell, axis), HashAxis(cell + 1, axis)},
          {1.0 - fade, fade},
          {(1.0 - fade) * fraction, fade * (fraction - 1.0)}};
}

/// Integral, from -1 to t, of the weight that a corner has at distance t: 1 - Fade(|t|).
double WeightIntegral(double t) {
  if (t <= -1.0) return 0.0;
  if (t >= 1.0) return 1.0;
  const double s = t < 0.0 ? t + 1.0 : 1.0 - t;
  const double tail = s * s * s * s * (s * s - 3.0 * s + 2.5);
  return t < 0.0 ? tail : 1.0 - tail;
}

/// Integral, from 0 to t, of t times that weight.
double MomentIntegral(double t) {
  const double s = std::min(std::fabs(t), 1.0), s2 = s * s;
  return s2 * 0.5 - s2 * s2 * s * ((s * (6.0 / 7.0) - 2.5) * s + 2.0);
}

/// Corner weights averaged over `width` cells about the point; widths to 2 reach four corners.
AxisWeights BoxWeights(int64_t cell, double fraction, double width, int axis) {
  const double low = fraction - 0.5 * width, high = fraction + 0.5 * width;
  const int first = static_cast<int>(std::floor(low)), last = static_cast<int>(std::floor(high)) + 1;
  AxisWeights w{last - first + 1, {}, {}, {}};
  for (int i = 0; i < w.count; ++i) {
    const int corner = first + i;
    w.hash[i] = HashAxis(cell + corner, axis);
    w.weight[i] = (WeightIntegral(high - corner) - WeightIntegral(low - corner)) / width;
    w.moment[i] = (MomentIntegral(high - corner) - MomentIntegral(low - corner)) / width;
  }
  return w;
}

/// Gradient noise of the corners' weights; with `kPoint` each axis has two, which the loops then unroll to.
template <bool kPoint>
double WeightedSum(const AxisWeights& x, const AxisWeights& y, const AxisWeights& z) {
  double sum = 0;
  for (int k = 0; k < (kPoint ? 2 : z.count); ++k)
    for (int j = 0; j < (kPoint ? 2 : y.count); ++j)
      for (int i = 0; i < (kPoint ? 2 : x.count); ++i) {
        const uint64_t hash = MixCorner(x.hash[i] + y.hash[j] + z.hash[k] + kLerpSeed);
        const double gx = OneToTwo(hash) - 1.5, gy = OneToTwo(hash << 17) - 1.5,
                     gz = OneToTwo(hash << 34) - 1.5;
        const double across = gx * x.moment[i] * y.weight[j] + gy * x.weight[i] * y.moment[j];
        sum += across * z.weight[k] + gz * x.weight[i] * y.weight[j] * z.moment[k];
      }
  return sum * kScale3;
}

}  // namespace

double trLerpNoise3(const double* point) {
  const CellPoint p(point);
  return WeightedSum<true>(PointWeights(p.cell[0], p.fraction[0], 0),
                           PointWeights(p.cell[1], p.fraction[1], 1),
                           PointWeights(p.cell[2], p.fraction[2], 2));
}

double trLerpNoise3_SmoothXY(const double* point, const double* filter) {
  const CellPoint p(point);
  AxisWeights w[2];
  double fade = 1.0;
  for (int i = 0; i < 2; ++i) {
    const double width = std::fabs(filter[i]);
    if (width >= 2.0) return 0.0;
    w[i] = width > kPointWidth ? BoxWeights(p.cell[i], p.fraction[i], width, i)
                               : PointWeights(p.cell[i], p.fraction[i], i);
    fade *= BoxFade(width);
  }
  return fade * WeightedSum<false>(w[0], w[1], PointWeights(p.cell[2], p.fraction[2], 2));
}

double trNoise3(const trVector& p) {
  trNoiseInst3 noise;
  noise.Init(true, kNoiseSeed);
  return noise.Noise3(p);
}

double trCellNoise3(const int* cell) {
  return SignedValue(HashAxis(cell[0], 0) + HashAxis(cell[1], 1) + HashAxis(cell[2], 2) + kCellSeed);
}

double trCellNoise3(const trVector& p) {
  const CellPoint c(&p.x);
  return SignedValue(HashAxis(c.cell[0], 0) + HashAxis(c.cell[1], 1) + HashAxis(c.cell[2], 2) + kCellSeed);
}

double trOldSharpNoise3(const trVector& p) {
  trNoiseInst3 noise;
  noise.Init(true, kSharpSeed);
  // A cubic that is flat at plus and minus 1, so that the clamp leaves no kink.
  const double n = std::clamp(1.6 * noise.Noise3(p), -1.0, 1.0);
  return n * (1.5 - 0.5 * n * n);
}

trVector trNoff3(int seed) {
  trVector offset;
  for (int i = 0; i < 3; ++i)
    offset[i] = 1000.0 * SignedValue(HashSeed(static_cast<uint32_t>(seed)) + HashAxis(i, i) + kOffsetSeed);
  return offset;
}
