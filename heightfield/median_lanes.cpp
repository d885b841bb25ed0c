#include "heightfield/median_lanes.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "heightfield/median_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace heightfield {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Lanes = hn::CappedTag<float, kMedianRoom>;
using V = hn::Vec<Lanes>;

/// Orders two numbers in every lane; what isn't a number stays where it is.
HWY_INLINE void Exchange(V& a, V& b) {
  const V p = a, q = b;
  const auto isLess = hn::Lt(q, p);
  a = hn::IfThenElse(isLess, q, p);
  b = hn::IfThenElse(isLess, p, q);
}

/// Brings the lowest of `count` numbers to the front and the highest to the end.
HWY_INLINE void SortEnds(V* set, int count) {
  for (int i = 0; i < count / 2; ++i) Exchange(set[i], set[count - 1 - i]);
  for (int i = 1; i < (count + 1) / 2; ++i) Exchange(set[0], set[i]);
  for (int i = count / 2; i < count - 1; ++i) Exchange(set[i], set[count - 1]);
}

/// By forgetful selection (Paeth 1990): of just over half of the points the lowest and the highest can't be
/// the median; they make room for another one.
template <int kRadius>
HWY_INLINE void Medians(const float* const* rows, int width, float* to) {
  constexpr int kSide = 2 * kRadius + 1, kCount = kSide * kSide, kHeld = kCount / 2 + 2;
  const Lanes d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (int x = 0; x < width; x += lanes) {
    const auto load = [&](int index) HWY_ATTR {
      return hn::LoadU(d, rows[index / kSide] + x + index % kSide - kRadius);
    };
    V held[kHeld];
    for (int i = 0; i < kHeld; ++i) held[i] = load(i);
    int count = kHeld;
    for (int next = kHeld; next < kCount; ++next) {
      SortEnds(held, count);
      --count;  // the highest goes, and the new one takes the place of the lowest
      held[0] = load(next);
    }
    SortEnds(held, count);
    float medians[kMedianRoom];
    hn::StoreU(held[1], d, medians);
    std::copy_n(medians, std::min(lanes, width - x), to + x);
  }
}

void Medians2(const float* const* rows, int width, float* to) { Medians<2>(rows, width, to); }
void Medians3(const float* const* rows, int width, float* to) { Medians<3>(rows, width, to); }

}  // namespace HWY_NAMESPACE
}  // namespace heightfield
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace heightfield {
HWY_EXPORT(Medians2);
HWY_EXPORT(Medians3);
}  // namespace heightfield

void MedianRow(int radius, const float* const* rows, int width, float* to) {
  if (radius == 2)
    HWY_DYNAMIC_DISPATCH(heightfield::Medians2)(rows, width, to);
  else
    HWY_DYNAMIC_DISPATCH(heightfield::Medians3)(rows, width, to);
}
#endif  // HWY_ONCE
