// The hashed lattice under every gradient noise: cell numbers, per-axis hashes and corner gradients, one
// point a lane. Included once per instruction set.
#if defined(HOST_NOISE_LATTICE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef HOST_NOISE_LATTICE_INL_H_
#undef HOST_NOISE_LATTICE_INL_H_
#else
#define HOST_NOISE_LATTICE_INL_H_
#endif

#include <hwy/highway.h>

#include "host/noise/lattice.h"

HWY_BEFORE_NAMESPACE();
namespace ovnoise {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class D>
using Bits = hn::RebindToUnsigned<D>;

/// Product of the low 32 bits of each 64-bit lane: the one integer multiply that every instruction set has.
template <class V>
HWY_INLINE V MulLow32(V a, V b) {
#if HWY_TARGET == HWY_SCALAR
  constexpr uint64_t kLow = 0xffffffff;
  return V((hn::GetLane(a) & kLow) * (hn::GetLane(b) & kLow));
#else
  const hn::Repartition<uint32_t, hn::DFromV<V>> d32;
  return hn::MulEven(hn::BitCast(d32, a), hn::BitCast(d32, b));
#endif
}

/// A position along one lattice axis: the fraction within its cell and the hashes of the cell's two ends.
template <class D>
struct Axis {
  hn::Vec<D> fraction;
  hn::Vec<Bits<D>> hash0, hash1;
};

template <class V>
HWY_INLINE V HashCell(V cell) {
  const hn::DFromV<V> d;
  V h = MulLow32(cell, hn::Set(d, kCellMultiplier1));
  h = hn::Xor(h, hn::ShiftRight<32>(h));
  return MulLow32(h, hn::Set(d, kCellMultiplier2));
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE Axis<D> LocateCell(D d, V x, uint64_t axisOffset) {
  const Bits<D> du;
  const V floor = hn::Floor(x);
  // Past the magic addition the low mantissa bits are the cell number in two's complement, wrapped at 2^32.
  const auto cell =
      hn::Add(hn::BitCast(du, hn::Add(floor, hn::Set(d, kFloorToBits))), hn::Set(du, axisOffset));
  return {hn::Sub(x, floor), HashCell(cell), HashCell(hn::Add(cell, hn::Set(du, uint64_t{1})))};
}

/// Coordinates that have no cell any more (2^51 and up, infinite, NaN) count as 0.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Sanitise(D d, V x) {
  return hn::IfThenElseZero(hn::Lt(hn::Abs(x), hn::Set(d, kLatticeEnd)), x);
}

/// Mixes the sum of a corner's axis hashes: the product of its halves breaks the sum's linearity.
template <class V>
HWY_INLINE V MixCorner(V sum) {
  return hn::Xor(sum, MulLow32(sum, hn::ShiftRight<32>(sum)));
}

/// A number in [1, 2) whose mantissa begins at the hash's bit 51. Bits above that are too regular for
/// gradients.
template <class D>
HWY_INLINE hn::Vec<D> OneToTwo(D d, hn::Vec<Bits<D>> hash) {
  const Bits<D> du;
  return hn::BitCast(d, hn::OrAnd(hn::Set(du, kOneBits), hash, hn::Set(du, kMantissaMask)));
}

/// Quintic fade of Perlin (Improving Noise, 2002): first and second derivative 0 at both ends.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Fade(D d, V t) {
  const V p = hn::Add(hn::Mul(hn::Sub(hn::Mul(t, hn::Set(d, 6.0)), hn::Set(d, 15.0)), t), hn::Set(d, 10.0));
  return hn::Mul(p, hn::Mul(t, hn::Mul(t, t)));
}

template <class V>
HWY_INLINE V Lerp(V t, V a, V b) {
  return hn::Add(a, hn::Mul(t, hn::Sub(b, a)));
}

/// Hash of a noise instance's seed (low 32 bits of each lane).
template <class V>
HWY_INLINE V HashSeed(V seed) {
  const hn::DFromV<V> d;
  V h = hn::Xor(seed, hn::Set(d, kSeedSalt));
  h = MulLow32(h, hn::Set(d, kCellMultiplier1));
  h = hn::Xor(h, hn::ShiftRight<32>(h));
  h = MulLow32(h, hn::Set(d, kCellMultiplier2));
  h = hn::Xor(h, hn::ShiftRight<29>(h));
  return hn::Xor(MulLow32(h, hn::Set(d, kCellMultiplier3)), hn::ShiftLeft<32>(h));
}

}  // namespace HWY_NAMESPACE
}  // namespace ovnoise
HWY_AFTER_NAMESPACE();

#endif
