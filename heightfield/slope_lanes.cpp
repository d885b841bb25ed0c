#include "heightfield/slope_lanes.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "heightfield/slope_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace heightfield {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Lanes = hn::CappedTag<double, 4>;
using V = hn::Vec<Lanes>;

void MirroredSlopes(const MirroredRows& rows, int reach, const double* weights, const double* weightsByColumn,
                    double* slopeX, double* slopeY) {
  const Lanes d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  // Two vectors side by side, whose sums don't wait for each other.
  for (int x = 0; x < rows.width; x += 2 * lanes) {
    const double *const s = rows.sums + x, *const t = rows.differences + x;
    V x0 = hn::Zero(d), x1 = x0, y0 = x0, y1 = x0;
    for (int i = 1; i <= reach; ++i) {
      const V weight = hn::Set(d, weights[i]), byColumn = hn::Set(d, weightsByColumn[i]);
      const auto at = [&](const double* p) HWY_ATTR { return hn::LoadU(d, p); };
      x0 = hn::Add(x0, hn::Mul(byColumn, hn::Sub(at(s + i), at(s - i))));
      x1 = hn::Add(x1, hn::Mul(byColumn, hn::Sub(at(s + lanes + i), at(s + lanes - i))));
      y0 = hn::Add(y0, hn::Mul(weight, hn::Add(at(t + i), at(t - i))));
      y1 = hn::Add(y1, hn::Mul(weight, hn::Add(at(t + lanes + i), at(t + lanes - i))));
    }
    const V distance = hn::Set(d, rows.distance);
    const auto add = [&](V slope, double* to)
                         HWY_ATTR { hn::StoreU(hn::Add(hn::LoadU(d, to), slope), d, to); };
    add(x0, slopeX + x);
    add(x1, slopeX + x + lanes);
    add(hn::Div(y0, distance), slopeY + x);
    add(hn::Div(y1, distance), slopeY + x + lanes);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace heightfield
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace heightfield {
HWY_EXPORT(MirroredSlopes);
}  // namespace heightfield

void AddMirroredSlopes(const MirroredRows& rows, int reach, const double* weights,
                       const double* weightsByColumn, double* slopeX, double* slopeY) {
  HWY_DYNAMIC_DISPATCH(heightfield::MirroredSlopes)
  (rows, reach, weights, weightsByColumn, slopeX, slopeY);
}
#endif  // HWY_ONCE
