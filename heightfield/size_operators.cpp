// Crop and resize.
#include "heightfield/size_operators.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/guarded.h"

namespace {

/// Interpolation along an axis at regular steps: the four points from `first` on that take part, before what
/// edges do to them, and their weights (Catmull and Rom 1974).
struct Tap {
  int first;
  double weights[4];

  Tap(double position, int count) {
    const double clamped = std::clamp(position, 0.0, count - 1.0);
    const int cell = std::min(static_cast<int>(clamped), std::max(count - 2, 0));
    first = cell - 1;
    const double t = clamped - cell, t2 = t * t, t3 = t2 * t;
    const double slope0 = t3 - 2 * t2 + t, slope1 = t3 - t2, value1 = 3 * t2 - 2 * t3;
    weights[0] = -0.5 * slope0;
    weights[1] = 1 - value1 - 0.5 * slope1;
    weights[2] = value1 + 0.5 * slope0;
    weights[3] = 0.5 * slope1;
  }
};

/// The points of one axis of the result, seen from the input's.
struct Axis {
  std::vector<int> nearest;
  std::vector<Tap> taps;

  Axis(double step, int from, int to) {
    for (int i = 0; i < to; ++i) {
      nearest.push_back(std::clamp(RoundedCount(i * step), 0, from - 1));
      taps.emplace_back(i * step, from);
    }
  }
};

/// Rows of the input brought to some of the result's columns, the last few of them kept: rows of the result
/// need them in turn. So few columns that all of it stays in the first cache.
class RowCache {
 public:
  static constexpr int kColumns = 512;

  RowCache(const trHeightfield& input, const Axis& columns, int begin, int end)
      : input_(input),
        taps_(&columns.taps[static_cast<std::size_t>(begin)]),
        nearestColumns_(&columns.nearest[static_cast<std::size_t>(begin)]),
        count_(end - begin),
        firstPoint_(taps_[0].first),
        numPoints_(taps_[count_ - 1].first + 4 - firstPoint_) {
    padded_.resize(static_cast<std::size_t>(numPoints_));
  }

  const double* Smooth(int y) {
    y = std::clamp(y, 0, input_.height - 1);
    double* const to = smooth_[y & 3];
    if (heldSmooth_[y & 3] == y) return to;
    const float* const from = input_.HfScanlineRaw(y);
    const int before = std::max(-firstPoint_, 0), inside = std::min(numPoints_, input_.width - firstPoint_);
    std::fill_n(padded_.begin(), before, static_cast<double>(from[0]));
    std::copy(from + firstPoint_ + before, from + firstPoint_ + inside, padded_.begin() + before);
    std::fill(padded_.begin() + inside, padded_.end(), static_cast<double>(from[input_.width - 1]));
    for (int x = 0; x < count_; ++x) {
      const Tap& tap = taps_[x];
      const double* const points = &padded_[static_cast<std::size_t>(tap.first - firstPoint_)];
      const double* const w = tap.weights;
      to[x] = (w[0] * points[0] + w[2] * points[2]) + (w[1] * points[1] + w[3] * points[3]);
    }
    heldSmooth_[y & 3] = y;
    return to;
  }

  const float* Nearest(int y) {
    if (heldNearest_ == y) return nearest_;
    const float* const from = input_.HfScanlineRaw(y);
    for (int x = 0; x < count_; ++x) nearest_[x] = from[nearestColumns_[x]];
    heldNearest_ = y;
    return nearest_;
  }

 private:
  const trHeightfield& input_;
  const Tap* taps_;
  const int* nearestColumns_;
  int count_, firstPoint_, numPoints_;
  std::vector<double> padded_;
  float nearest_[kColumns];
  double smooth_[4][kColumns];
  int heldSmooth_[4] = {-1, -1, -1, -1}, heldNearest_ = -1;
};

/// Four rows, and the nearest points where they aren't null, mixed to a row of the result.
struct RowMix {
  const double *a, *b, *c, *d;
  const float* nearest;
  double wa, wb, wc, wd, wn;
};

// Wider registers compute the same bits: nothing is contracted.
__attribute__((target_clones("avx2", "default"))) void MixRows(const RowMix& mix, float* to, int count) {
  const double *const a = mix.a, *const b = mix.b, *const c = mix.c, *const d = mix.d;
  const float* const nearest = mix.nearest;
  const double wa = mix.wa, wb = mix.wb, wc = mix.wc, wd = mix.wd, wn = mix.wn;
  if (!nearest)
    for (int x = 0; x < count; ++x)
      to[x] = static_cast<float>(wa * a[x] + wb * b[x] + (wc * c[x] + wd * d[x]));
  else
    for (int x = 0; x < count; ++x)
      to[x] = static_cast<float>(wa * a[x] + wb * b[x] + (wc * c[x] + wd * d[x]) + wn * nearest[x]);
}

}  // namespace

HeightfieldCrop::HeightfieldCrop() {
  Param(crop_, "crop", 1);
  Param(bottomLeft_, "bottom_left", tr2Vector(0, 0));
  Param(topRight_, "top_right", tr2Vector(99, 99));
  Param(includeTopRight_, "include_top_right", 1);
  Param(pad_, "pad_outside_original", 0);
}

HeightfieldCrop::Span HeightfieldCrop::Wanted(double a, double b, int count) const {
  Span span = {std::floor(std::min(a, b) + 0.5), std::floor(std::max(a, b) + 0.5)};
  if (!includeTopRight_) span.last -= 1;
  if (!pad_) {
    span.first = std::max(span.first, 0.0);
    span.last = std::min(span.last, count - 1.0);
  }
  return span;
}

void HeightfieldCrop::TakeCorners(const trHeightfield& input, const Span& x, const Span& y) {
  trLatLongCorners corners;
  HfSetLatLongEnabled(input.HfLatLongCorners(&corners));
  const double perX = GuardedDivide(corners.east - corners.west, static_cast<double>(input.HfXSize())),
               perY = GuardedDivide(corners.north - corners.south, static_cast<double>(input.HfYSize()));
  HfSetLatLongCorners({corners.south + perY * y.first, corners.west + perX * x.first,
                       corners.south + perY * y.last, corners.west + perX * x.last});
}

long HeightfieldCrop::Compute(trHeightfield* input) {
  if (!input) {
    HfSetScaleEnabled(0);
    HfSetLatLongEnabled(0);
    return MakeFlat(*this);
  }
  const Span x = Wanted(bottomLeft_.x, topRight_.x, input->width),
             y = Wanted(bottomLeft_.y, topRight_.y, input->height);
  if (x.last < x.first || y.last < y.first) {
    Cleanup();
    trError("The crop leaves no point of the heightfield.");
    return 0;
  }
  if (!Init(0, 0, RoundedCount(x.last - x.first + 1), RoundedCount(y.last - y.first + 1))) return 0;
  HfSetScaleEnabled(1);
  HfSetScale(input->HfXScale(), input->HfYScale(), input->HfZScale());
  TakeCorners(*input, x, y);

  // The columns of the result that lie on the input, from `begin` to before `end`.
  const double beginX = std::clamp(-x.first, 0.0, 1.0 * width),
               endX = std::clamp(input->width - x.first, beginX, 1.0 * width);
  const auto begin = static_cast<std::int64_t>(beginX), end = static_cast<std::int64_t>(endX);
  const auto copyRow = [&](long row) {
    float* const to = HfScanlineRaw(static_cast<int>(row));
    const double fromRow = y.first + static_cast<double>(row);
    if (fromRow < 0 || fromRow >= input->height || begin == end) {
      std::fill(to, to + width, 0.0f);
      return;
    }
    const float* const from = input->HfScanlineRaw(static_cast<int>(fromRow));
    std::fill(to, to + begin, 0.0f);
    std::memcpy(to + begin, from + begin + static_cast<std::int64_t>(x.first),
                static_cast<std::size_t>(end - begin) * sizeof(float));
    std::fill(to + end, to + width, 0.0f);
  };
  if (!ForEachRow(*this, "Cropping heightfield", height, copyRow)) return 0;
  HfFindZRange();
  return 1;
}

HeightfieldResize::HeightfieldResize() {
  Param(resample_, "re-sample_pixels", 0);
  Gui(trGuiIndentOpen);
  Param(sizeInPixels_, "size_in_pixels", tr2Vector(1000, 1000));
  Gui(trGuiIndentClose);
  Param(resize_, "re-size_in_metres", 1);
  Gui(trGuiIndentOpen);
  Param(sizeInMetres_, "size_in_metres", tr2Vector(10000, 10000));
  // A project from before this parameter scales heights along; new nodes leave them.
  Param(rescaleVertical_, "re-scale_vertical", 1);
  Gui(trGuiIndentClose);
}

long HeightfieldResize::OnFirstCreate() {
  trHeightfield::OnFirstCreate();
  SetParam("re-scale_vertical", 0, this);
  return 1;
}

void HeightfieldResize::OnParamChanged(long index, trBase* who) {
  const trHeightfield* const input = HfInput();
  const auto undo = [&](unsigned char isOn, bool& isApplied) {
    if (isOn || !isApplied) return;
    if (input) HfSetScale(input->HfXScale(), input->HfYScale(), input->HfZScale());
    isApplied = false;
  };
  undo(resample_, isResampled_);
  undo(resize_, isResized_);
  trHeightfield::OnParamChanged(index, who);
}

long HeightfieldResize::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  trLatLongCorners corners;
  HfSetLatLongEnabled(0);
  HfSetLatLongEnabled(HfLatLongCorners(&corners));
  HfSetLatLongCorners(corners);
  const long isMade = resample_ ? Resample(input) : input ? CopyRows(*input) : MakeFlat(*this);
  if (!isMade) return 0;
  if (resize_) Rescale();
  return 1;
}

long HeightfieldResize::Resample(const trHeightfield* input) {
  if (!Init(0, 0, RoundedCount(sizeInPixels_.x), RoundedCount(sizeInPixels_.y))) return 0;
  const auto newX = static_cast<double>(HfXSize()), newY = static_cast<double>(HfYSize());
  // Without an input there are no metres to keep: they are taken for one per interval.
  const double x = input ? GuardedDivide(input->HfScaledXSize(), newX) : 1,
               y = input ? GuardedDivide(input->HfScaledYSize(), newY) : 1;
  HfSetScaleEnabled(1);
  HfSetScale(x, y, std::sqrt(std::fabs(x * y)));
  isResampled_ = true;
  if (input) {
    FillFrom(*input, GuardedDivide(static_cast<double>(input->HfXSize()), newX),
             GuardedDivide(static_cast<double>(input->HfYSize()), newY));
    HfFindZRange();
  } else {
    Fill(0);
    HfSetMinZ(0);
    HfSetMaxZ(0);
  }
  return 1;
}

void HeightfieldResize::FillFrom(const trHeightfield& input, double stepX, double stepY) {
  const double d = std::sqrt(stepX * stepY);
  const double unit = d == 0 ? 1 : 1 / d;
  // 1 where the grid becomes at least twice as fine, 0 where it stays or becomes coarser.
  const double smooth = std::clamp(-std::log(d) / std::log(2.0), 0.0, 1.0);
  const Axis columns(stepX, input.width, width), rows(stepY, input.height, height);

  constexpr int kBand = 64;  // rows that share interpolated rows of the input
  const long pieces = (width + RowCache::kColumns - 1) / RowCache::kColumns;
  ForEachRow((height + kBand - 1) / kBand * pieces, [&](long piece) {
    const int beginX = static_cast<int>(piece % pieces) * RowCache::kColumns,
              endX = std::min(beginX + RowCache::kColumns, width), count = endX - beginX;
    RowCache cache(input, columns, beginX, endX);
    const int begin = static_cast<int>(piece / pieces) * kBand, end = std::min(begin + kBand, height);
    for (int y = begin; y < end; ++y) {
      float* const to = HfScanlineRaw(y) + beginX;
      const float* const nearest =
          smooth == 1 ? nullptr : cache.Nearest(rows.nearest[static_cast<std::size_t>(y)]);
      if (smooth == 0) {
        for (int x = 0; x < count; ++x) to[x] = static_cast<float>(nearest[x] * unit);
        continue;
      }
      // The mix of both and the new unit go into the weights.
      const Tap& tap = rows.taps[static_cast<std::size_t>(y)];
      const double* const w = tap.weights;
      MixRows({cache.Smooth(tap.first), cache.Smooth(tap.first + 1), cache.Smooth(tap.first + 2),
               cache.Smooth(tap.first + 3), nearest, w[0] * smooth * unit, w[1] * smooth * unit,
               w[2] * smooth * unit, w[3] * smooth * unit, (1 - smooth) * unit},
              to, count);
    }
  });
}

void HeightfieldResize::Rescale() {
  const double x = HfXScale(), y = HfYScale(), z = HfZScale();
  const double newX = GuardedDivide(sizeInMetres_.x, static_cast<double>(HfXSize())),
               newY = GuardedDivide(sizeInMetres_.y, static_cast<double>(HfYSize()));
  const double growth = GuardedDivide(newX, x) * GuardedDivide(newY, y);
  HfSetScaleEnabled(1);
  HfSetScale(newX, newY, rescaleVertical_ ? z * std::sqrt(std::fabs(growth)) : z);
  isResized_ = true;
}
