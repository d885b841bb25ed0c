// Gradient noise in three and four dimensions (after Perlin 2002, with hashed continuous gradients), one
// lookup a SIMD lane.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/gradient_noise.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>
// The lattice needs Highway ahead of it.
#include "core/noise.h"
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

/// Calls `lookup(seedState, load, store)` for every vector of a batch, the last one masked. With one seed for
/// all entries its state is made once.
template <class D, class Lookup>
HWY_INLINE void ForEachVector(D d, const trNoiseBatch& b, double* out, const Lookup& lookup) {
  const Bits<D> du;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto iota = hn::Iota(du, 0);
  const auto stepOfLane = MulLow32(iota, hn::Set(du, uint64_t{b.seedStep}));
  SeedState<D> state = MakeSeedState(d, hn::Add(hn::Set(du, uint64_t{b.firstSeed}), stepOfLane));
  for (int i = 0; i < b.count; i += lanes) {
    if (b.seedStep != 0 && i != 0)
      state = MakeSeedState(
          d, hn::Add(hn::Set(du, uint64_t{b.firstSeed + b.seedStep * static_cast<uint32_t>(i)}), stepOfLane));
    if (i + lanes <= b.count) {
      hn::StoreU(lookup(state, [&](const double* p) HWY_ATTR { return hn::LoadU(d, p + i); }), d, out + i);
    } else {
      const auto mask = hn::FirstN(d, static_cast<size_t>(b.count - i));
      const auto v = lookup(state, [&](const double* p) HWY_ATTR { return hn::MaskedLoad(mask, d, p + i); });
      hn::BlendedStore(v, mask, d, out + i);
    }
  }
}

template <class D>
HWY_INLINE void Run3(D d, const trNoiseBatch& b, double* out) {
  ForEachVector(d, b, out, [&](const SeedState<D>& seed, const auto& load) HWY_ATTR {
    return Noise3(d, load(b.x), load(b.y), load(b.z), seed);
  });
}
template <class D>
HWY_INLINE void Run4(D d, const trNoiseBatch& b, double* out) {
  ForEachVector(d, b, out, [&](const SeedState<D>& seed, const auto& load) HWY_ATTR {
    return Noise4(d, load(b.x), load(b.y), load(b.z), load(b.w), seed);
  });
}

// A single lookup runs in the narrowest vectors, which have the shortest latency.
void Batch3(const trNoiseBatch& b, double* out) {
  if (b.count == 1) return Run3(hn::CappedTag<double, 1>(), b, out);
  Run3(hn::ScalableTag<double>(), b, out);
}
void Batch4(const trNoiseBatch& b, double* out) {
  if (b.count == 1) return Run4(hn::CappedTag<double, 1>(), b, out);
  Run4(hn::ScalableTag<double>(), b, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ovnoise {
HWY_EXPORT(Batch3);
HWY_EXPORT(Batch4);
}  // namespace ovnoise

void trNoise3Batch(const trNoiseBatch& batch, double* out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Batch3)(batch, out);
}
void trNoise4Batch(const trNoiseBatch& batch, double* out) {
  HWY_DYNAMIC_DISPATCH(ovnoise::Batch4)(batch, out);
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
