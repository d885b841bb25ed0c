// Gradient noise in three and four dimensions (after Perlin 2002, with hashed continuous gradients), one
// lookup a SIMD lane.
#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/gradient_noise.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// The lattice needs Highway ahead of it.
#include "core/noise.h"
#include "core/noise_slope.h"
#include "host/noise/lattice-inl.h"

HWY_BEFORE_NAMESPACE();
namespace ovnoise {
namespace HWY_NAMESPACE {

/// What a seed fixes: the hash that goes into every corner, and where in its cell the lattice begins.
template <class D>
struct SeedState {
  hn::Vec<Bits<D>> hash;
  hn::Vec<D> offset[4];
};

template <class D>
HWY_INLINE SeedState<D> MakeSeedState(D d, hn::Vec<Bits<D>> seed) {
  SeedState<D> s;
  s.hash = HashSeed(seed);
  s.offset[0] = OneToTwo(d, s.hash);
  s.offset[1] = OneToTwo(d, hn::ShiftLeft<13>(s.hash));
  s.offset[2] = OneToTwo(d, hn::ShiftLeft<26>(s.hash));
  s.offset[3] = OneToTwo(d, hn::ShiftLeft<37>(s.hash));
  return s;
}

/// Dot product of a corner's gradient, uniform in a cube of side 1 about 0, with the way from the corner to
/// the point. `bias` is 1.5 times the sum of that way: it takes the gradient from [1, 2) to about 0.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Corner3(D d, hn::Vec<Bits<D>> sum, V x, V y, V z, V bias) {
  const auto hash = MixCorner(sum);
  const V gx = hn::Mul(OneToTwo(d, hash), x);
  const V gy = hn::Mul(OneToTwo(d, hn::ShiftLeft<17>(hash)), y);
  const V gz = hn::Mul(OneToTwo(d, hn::ShiftLeft<34>(hash)), z);
  return hn::Sub(hn::Add(hn::Add(gx, gy), gz), bias);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V Noise3(D d, V px, V py, V pz, const SeedState<D>& seed) {
  const V sx = Sanitise(d, px), sy = Sanitise(d, py), sz = Sanitise(d, pz);
  Axis<D> axis[3];
  for (int i = 0; i < 3; ++i) {
    const V rotated =
        hn::Add(hn::Add(hn::Mul(sx, hn::Set(d, kRotation3[i][0])), hn::Mul(sy, hn::Set(d, kRotation3[i][1]))),
                hn::Mul(sz, hn::Set(d, kRotation3[i][2])));
    axis[i] = LocateCell(d, hn::Add(rotated, seed.offset[i]), kAxisOffset[i]);
  }
  const V one = hn::Set(d, 1.0), step = hn::Set(d, 1.5);
  const V x0 = axis[0].fraction, y0 = axis[1].fraction, z0 = axis[2].fraction;
  const V x1 = hn::Sub(x0, one), y1 = hn::Sub(y0, one), z1 = hn::Sub(z0, one);
  const V bias0 = hn::Mul(hn::Add(hn::Add(x0, y0), z0), step);
  const V bias1 = hn::Sub(bias0, step), bias2 = hn::Sub(bias1, step), bias3 = hn::Sub(bias2, step);
  const auto hz0 = hn::Add(axis[2].hash0, seed.hash), hz1 = hn::Add(axis[2].hash1, seed.hash);
  const auto h00 = hn::Add(axis[0].hash0, axis[1].hash0), h10 = hn::Add(axis[0].hash1, axis[1].hash0);
  const auto h01 = hn::Add(axis[0].hash0, axis[1].hash1), h11 = hn::Add(axis[0].hash1, axis[1].hash1);
  const V u = Fade(d, x0), v = Fade(d, y0), w = Fade(d, z0);
  const V low = Lerp(v,
                     Lerp(u, Corner3(d, hn::Add(h00, hz0), x0, y0, z0, bias0),
                          Corner3(d, hn::Add(h10, hz0), x1, y0, z0, bias1)),
                     Lerp(u, Corner3(d, hn::Add(h01, hz0), x0, y1, z0, bias1),
                          Corner3(d, hn::Add(h11, hz0), x1, y1, z0, bias2)));
  const V high = Lerp(v,
                      Lerp(u, Corner3(d, hn::Add(h00, hz1), x0, y0, z1, bias1),
                           Corner3(d, hn::Add(h10, hz1), x1, y0, z1, bias2)),
                      Lerp(u, Corner3(d, hn::Add(h01, hz1), x0, y1, z1, bias2),
                           Corner3(d, hn::Add(h11, hz1), x1, y1, z1, bias3)));
  return hn::Mul(Lerp(w, low, high), hn::Set(d, kScale3));
}

/// Entries that trNoise3SlopeBatch's counts are multiples of.
inline constexpr int kSlopeLanes = 8;

/// A value and its slopes along the lattice's axes.
template <class D>
struct Jet {
  hn::Vec<D> value, slope[3];
};

/// Corner3 with its slopes, which are the corner's gradient plus 1.5.
template <class D, class V = hn::Vec<D>>
HWY_INLINE Jet<D> CornerJet(D d, hn::Vec<Bits<D>> sum, V x, V y, V z, V bias) {
  const auto hash = MixCorner(sum);
  Jet<D> jet;
  jet.slope[0] = OneToTwo(d, hash);
  jet.slope[1] = OneToTwo(d, hn::ShiftLeft<17>(hash));
  jet.slope[2] = OneToTwo(d, hn::ShiftLeft<34>(hash));
  const V xy = hn::Add(hn::Mul(jet.slope[0], x), hn::Mul(jet.slope[1], y));
  jet.value = hn::Sub(hn::Add(xy, hn::Mul(jet.slope[2], z)), bias);
  return jet;
}

/// From `a` to `b` by the faded fraction `t` along `axis`, where that grows by `dt`.
template <int kAxis, class D, class V = hn::Vec<D>>
HWY_INLINE Jet<D> LerpJet(D, V t, V dt, const Jet<D>& a, const Jet<D>& b) {
  Jet<D> jet;
  const V rise = hn::Sub(b.value, a.value);
  jet.value = hn::Add(a.value, hn::Mul(t, rise));
  for (int i = 0; i < 3; ++i) jet.slope[i] = Lerp(t, a.slope[i], b.slope[i]);
  jet.slope[kAxis] = hn::Add(jet.slope[kAxis], hn::Mul(dt, rise));
  return jet;
}

/// Derivative of Fade.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V FadeSlope(D d, V t) {
  const V square = hn::Mul(t, hn::Sub(t, hn::Set(d, 1.0)));
  return hn::Mul(hn::Set(d, 30.0), hn::Mul(square, square));
}

/// Noise3 to the bit, and its slopes along the axes of the point.
template <class D, class V = hn::Vec<D>>
HWY_INLINE Jet<D> Noise3Jet(D d, V px, V py, V pz, const SeedState<D>& seed) {
  const V sx = Sanitise(d, px), sy = Sanitise(d, py), sz = Sanitise(d, pz);
  const V one = hn::Set(d, 1.0), step = hn::Set(d, 1.5);
  V way[3][2], fade[3], fadeSlope[3];
  hn::Vec<Bits<D>> hash[3][2];
  for (int i = 0; i < 3; ++i) {
    const V rotated =
        hn::Add(hn::Add(hn::Mul(sx, hn::Set(d, kRotation3[i][0])), hn::Mul(sy, hn::Set(d, kRotation3[i][1]))),
                hn::Mul(sz, hn::Set(d, kRotation3[i][2])));
    const Axis<D> axis = LocateCell(d, hn::Add(rotated, seed.offset[i]), kAxisOffset[i]);
    way[i][0] = axis.fraction;
    way[i][1] = hn::Sub(axis.fraction, one);
    fade[i] = Fade(d, axis.fraction);
    fadeSlope[i] = FadeSlope(d, axis.fraction);
    hash[i][0] = axis.hash0;
    hash[i][1] = axis.hash1;
  }
  hash[2][0] = hn::Add(hash[2][0], seed.hash);
  hash[2][1] = hn::Add(hash[2][1], seed.hash);
  V bias[4];
  bias[0] = hn::Mul(hn::Add(hn::Add(way[0][0], way[1][0]), way[2][0]), step);
  for (int i = 1; i < 4; ++i) bias[i] = hn::Sub(bias[i - 1], step);
  Jet<D> face[2];
  for (int k = 0; k < 2; ++k) {
    Jet<D> edge[2];
    for (int j = 0; j < 2; ++j) {
      const auto corner = [&](int i) HWY_ATTR {
        const auto sum = hn::Add(hn::Add(hash[0][i], hash[1][j]), hash[2][k]);
        return CornerJet(d, sum, way[0][i], way[1][j], way[2][k], bias[i + j + k]);
      };
      edge[j] = LerpJet<0>(d, fade[0], fadeSlope[0], corner(0), corner(1));
    }
    face[k] = LerpJet<1>(d, fade[1], fadeSlope[1], edge[0], edge[1]);
  }
  const Jet<D> lattice = LerpJet<2>(d, fade[2], fadeSlope[2], face[0], face[1]);
  const V scale = hn::Set(d, kScale3);
  V slope[3];
  for (int i = 0; i < 3; ++i) slope[i] = hn::Mul(hn::Sub(lattice.slope[i], step), scale);
  Jet<D> jet;
  jet.value = hn::Mul(lattice.value, scale);
  for (int i = 0; i < 3; ++i)
    jet.slope[i] = hn::Add(hn::Add(hn::Mul(slope[0], hn::Set(d, kRotation3[0][i])),
                                   hn::Mul(slope[1], hn::Set(d, kRotation3[1][i]))),
                           hn::Mul(slope[2], hn::Set(d, kRotation3[2][i])));
  return jet;
}

/// The four-dimensional form of Corner3.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Corner4(D d, hn::Vec<Bits<D>> sum, V x, V y, V z, V w, V bias) {
  const auto hash = MixCorner(sum);
  const V gx = hn::Mul(OneToTwo(d, hash), x);
  const V gy = hn::Mul(OneToTwo(d, hn::ShiftLeft<13>(hash)), y);
  const V gz = hn::Mul(OneToTwo(d, hn::ShiftLeft<26>(hash)), z);
  const V gw = hn::Mul(OneToTwo(d, hn::ShiftLeft<37>(hash)), w);
  return hn::Sub(hn::Add(hn::Add(gx, gy), hn::Add(gz, gw)), bias);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V Noise4(D d, V px, V py, V pz, V pw, const SeedState<D>& seed) {
  const V p[4] = {Sanitise(d, px), Sanitise(d, py), Sanitise(d, pz), Sanitise(d, pw)};
  const V one = hn::Set(d, 1.0), step = hn::Set(d, 1.5);
  V way[4][2], fade[4];
  hn::Vec<Bits<D>> hash[4][2];
  for (int i = 0; i < 4; ++i) {
    const V xy =
        hn::Add(hn::Mul(p[0], hn::Set(d, kRotation4[i][0])), hn::Mul(p[1], hn::Set(d, kRotation4[i][1])));
    const V zw =
        hn::Add(hn::Mul(p[2], hn::Set(d, kRotation4[i][2])), hn::Mul(p[3], hn::Set(d, kRotation4[i][3])));
    const Axis<D> axis = LocateCell(d, hn::Add(hn::Add(xy, zw), seed.offset[i]), kAxisOffset[i]);
    way[i][0] = axis.fraction;
    way[i][1] = hn::Sub(axis.fraction, one);
    fade[i] = Fade(d, axis.fraction);
    hash[i][0] = axis.hash0;
    hash[i][1] = axis.hash1;
  }
  hash[3][0] = hn::Add(hash[3][0], seed.hash);
  hash[3][1] = hn::Add(hash[3][1], seed.hash);
  V bias[5];
  bias[0] = hn::Mul(hn::Add(hn::Add(way[0][0], way[1][0]), hn::Add(way[2][0], way[3][0])), step);
  for (int i = 1; i < 5; ++i) bias[i] = hn::Sub(bias[i - 1], step);
  V cube[2];
  for (int l = 0; l < 2; ++l) {
    V square[2];
    for (int k = 0; k < 2; ++k) {
      const auto hkl = hn::Add(hash[2][k], hash[3][l]);
      V edge[2];
      for (int j = 0; j < 2; ++j) {
        const auto hjkl = hn::Add(hash[1][j], hkl);
        const int steps = j + k + l;
        const V c0 =
            Corner4(d, hn::Add(hash[0][0], hjkl), way[0][0], way[1][j], way[2][k], way[3][l], bias[steps]);
        const V c1 = Corner4(d, hn::Add(hash[0][1], hjkl), way[0][1], way[1][j], way[2][k], way[3][l],
                             bias[steps + 1]);
        edge[j] = Lerp(fade[0], c0, c1);
      }
      square[k] = Lerp(fade[1], edge[0], edge[1]);
    }
    cube[l] = Lerp(fade[2], square[0], square[1]);
  }
  return hn::Mul(Lerp(fade[3], cube[0], cube[1]), hn::Set(d, kScale4));
}

/// Looks up the vector of entries from `begin` on.
template <int kDimensions, class D>
HWY_INLINE hn::Vec<D> Lookup(D d, const double* const (&p)[4], int begin, const SeedState<D>& seed) {
  const auto x = hn::LoadU(d, p[0] + begin), y = hn::LoadU(d, p[1] + begin), z = hn::LoadU(d, p[2] + begin);
  if constexpr (kDimensions == 3)
    return Noise3(d, x, y, z, seed);
  else
    return Noise4(d, x, y, z, hn::LoadU(d, p[3] + begin), seed);
}

template <int kDimensions, class D>
HWY_INLINE void Run(D d, const trNoiseBatch& b, double* out) {
  const Bits<D> du;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto stepOfLane = MulLow32(hn::Iota(du, 0), hn::Set(du, uint64_t{b.seedStep}));
  const auto seedAt = [&](int i) HWY_ATTR {
    const uint32_t first = b.firstSeed + b.seedStep * static_cast<uint32_t>(i);
    return MakeSeedState(d, hn::Add(hn::Set(du, uint64_t{first}), stepOfLane));
  };
  const double* const inputs[4] = {b.x, b.y, b.z, b.w};
  SeedState<D> state = seedAt(0);
  int i = 0;
  for (; i + lanes <= b.count; i += lanes) {
    if (b.seedStep != 0 && i != 0) state = seedAt(i);
    hn::StoreU(Lookup<kDimensions>(d, inputs, i, state), d, out + i);
  }
  if (i >= b.count) return;
  // What is left over goes through a vector of its own.
  HWY_ALIGN double rest[5][hn::MaxLanes(d)] = {};
  const double* const restInputs[4] = {rest[0], rest[1], rest[2], rest[3]};
  for (int axis = 0; axis < kDimensions; ++axis)
    std::copy(inputs[axis] + i, inputs[axis] + b.count, rest[axis]);
  hn::StoreU(Lookup<kDimensions>(d, restInputs, 0, seedAt(i)), d, rest[4]);
  std::copy(rest[4], rest[4] + (b.count - i), out + i);
}

// A single lookup runs in the narrowest vectors, which have the shortest latency.
void Batch3(const trNoiseBatch& b, double* out) {
  if (b.count == 1) return Run<3>(hn::CappedTag<double, 1>(), b, out);
  Run<3>(hn::ScalableTag<double>(), b, out);
}
void Batch4(const trNoiseBatch& b, double* out) {
  if (b.count == 1) return Run<4>(hn::CappedTag<double, 1>(), b, out);
  Run<4>(hn::ScalableTag<double>(), b, out);
}

/// Noise and slopes of whole vectors of entries.
void Slope3(const trNoiseBatch& b, const trNoiseSlopes& out) {
  const hn::CappedTag<double, kSlopeLanes> d;
  const Bits<decltype(d)> du;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto stepOfLane = MulLow32(hn::Iota(du, 0), hn::Set(du, uint64_t{b.seedStep}));
  for (int i = 0; i < b.count; i += lanes) {
    const uint32_t first = b.firstSeed + b.seedStep * static_cast<uint32_t>(i);
    const auto seed = MakeSeedState(d, hn::Add(hn::Set(du, uint64_t{first}), stepOfLane));
    const auto jet = Noise3Jet(d, hn::LoadU(d, b.x + i), hn::LoadU(d, b.y + i), hn::LoadU(d, b.z + i), seed);
    hn::StoreU(jet.value, d, out.value + i);
    hn::StoreU(jet.slope[0], d, out.x + i);
    hn::StoreU(jet.slope[1], d, out.y + i);
    hn::StoreU(jet.slope[2], d, out.z + i);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovnoise {
HWY_EXPORT(Batch3);
HWY_EXPORT(Batch4);
HWY_EXPORT(Slope3);
}  // namespace ovnoise

void trNoise3Batch(const trNoiseBatch& batch, double* out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Batch3)(batch, out);
}
void trNoise4Batch(const trNoiseBatch& batch, double* out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Batch4)(batch, out);
}

void trNoise3SlopeBatch(const trNoiseBatch& batch, const trNoiseSlopes& out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Slope3)(batch, out);
}

void trNoiseInst3::Init(bool seeded, int seed) { seed_ = seeded ? static_cast<std::uint32_t>(seed) : 0; }
double trNoiseInst3::Noise3(const trVector& p) const {
  double n;
  trNoise3Batch({&p.x, &p.y, &p.z, nullptr, seed_, 0, 1}, &n);
  return n;
}

void trNoiseInst4::Init(bool seeded, int seed) { seed_ = seeded ? static_cast<std::uint32_t>(seed) : 0; }
double trNoiseInst4::Noise4(const trVector& p, const double& w) const {
  double n;
  trNoise4Batch({&p.x, &p.y, &p.z, &w, seed_, 0, 1}, &n);
  return n;
}
#endif  // HWY_ONCE
