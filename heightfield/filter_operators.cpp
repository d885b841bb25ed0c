// Smooth and median.
#include "heightfield/filter_operators.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "core/idioms.h"
#include "heightfield/cone_kernel.h"
#include "heightfield/median_lanes.h"

namespace {

/// Points worked on side by side.
constexpr int kLanes = kMedianRoom;
/// Medians over larger squares take longer than anybody waits.
constexpr long kMaxMedianRadius = 1000;

/// A row with its end points repeated `margin` times on either side, and room to work in whole lanes.
class PaddedRow {
 public:
  PaddedRow(int width, int margin)
      : width_(width), margin_(margin), points_(static_cast<std::size_t>(width) + 2 * margin + kLanes) {}

  void Take(const float* row) {
    std::copy_n(row, width_, points_.begin() + margin_);
    RepeatEnds();
  }
  void TakeSum(const float* a, const float* b) {
    float* const to = points_.data() + margin_;
    for (int x = 0; x < width_; ++x) to[x] = a[x] + b[x];
    RepeatEnds();
  }
  /// The row's point 0; the margin lies before it.
  const float* Points() const { return points_.data() + margin_; }

 private:
  void RepeatEnds() {
    const auto first = points_.begin() + margin_;
    std::fill_n(points_.begin(), margin_, *first);
    std::fill_n(first + width_, margin_, first[width_ - 1]);
  }

  int width_, margin_;
  std::vector<float> points_;
};

const float* ClampedRow(const trHeightfield& field, long row) {
  return field.HfScanlineRaw(static_cast<int>(std::clamp<long>(row, 0, field.height - 1)));
}

/// One row of the smoothed field. The cone is symmetric, so that the rows above and below go together, and
/// the columns to the left and right.
void SmoothRow(const trHeightfield& input, const ConeKernel& kernel, long row, float* to) {
  const int width = input.width;
  PaddedRow line(width, kernel.halfX);
  std::vector<float> total(static_cast<std::size_t>(width) + kLanes);
  for (int j = 0; j <= kernel.halfY; ++j) {
    const float* const weights = kernel.Row(j) + kernel.halfX;
    int reach = kernel.halfX;
    while (reach > 0 && weights[reach] == 0) --reach;
    if (weights[0] == 0) break;  // the rows further out have none either
    if (j == 0)
      line.Take(ClampedRow(input, row));
    else
      line.TakeSum(ClampedRow(input, row - j), ClampedRow(input, row + j));
    for (int x = 0; x < width; x += kLanes) {
      const float* const at = line.Points() + x;
      float sums[kLanes];
      for (int k = 0; k < kLanes; ++k) sums[k] = weights[0] * at[k];
      for (int i = 1; i <= reach; ++i)
        for (int k = 0; k < kLanes; ++k) sums[k] += weights[i] * (at[k - i] + at[k + i]);
      for (int k = 0; k < kLanes; ++k) total[x + k] += sums[k];
    }
  }
  std::copy_n(total.begin(), width, to);
}

void MedianRowOfSmallRadius(const trHeightfield& input, int radius, long row, float* to) {
  std::vector<PaddedRow> lines(2 * radius + 1, PaddedRow(input.width, radius));
  std::vector<const float*> rows;
  for (int j = -radius; j <= radius; ++j) {
    lines[j + radius].Take(ClampedRow(input, row + j));
    rows.push_back(lines[j + radius].Points());
  }
  MedianRow(radius, rows.data(), input.width, to);
}

/// Order of floats as that of integers: a total one, whatever the file held.
std::int32_t OrderOf(float value) {
  const auto bits = std::bit_cast<std::int32_t>(value);
  return bits < 0 ? bits ^ 0x7fffffff : bits;
}
float FromOrder(std::int32_t order) { return std::bit_cast<float>(order < 0 ? order ^ 0x7fffffff : order); }

void MedianRowOfAnyRadius(const trHeightfield& input, long radius, long row, float* to) {
  std::vector<std::int32_t> square;
  for (long x = 0; x < input.width; ++x) {
    square.clear();
    for (long j = -radius; j <= radius; ++j) {
      const float* const line = ClampedRow(input, row + j);
      for (long i = -radius; i <= radius; ++i)
        square.push_back(OrderOf(line[std::clamp<long>(x + i, 0, input.width - 1)]));
    }
    const auto middle = square.begin() + static_cast<std::ptrdiff_t>(square.size() / 2);
    std::nth_element(square.begin(), middle, square.end());
    to[x] = FromOrder(*middle);
  }
}

}  // namespace

HeightfieldSmooth::HeightfieldSmooth() {
  SetRange(radiusHint_, this, {.min = 0.0, .max = 1000.0, .focusPower = 2.0});
  Param(smooth_, "smooth", 1).About("Kept for older projects; without effect.");
  Param(radius_, "smooth_radius", 10.0, &radiusHint_)
      .About("Distance over which heights are averaged, the nearer the more, metres.");
}

long HeightfieldSmooth::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  if (!input) return MakeFlat(*this);
  const auto rx = static_cast<float>(GuardedDivide(radius_, input->HfXScale())),
             ry = static_cast<float>(GuardedDivide(radius_, input->HfYScale()));
  if (!ConeKernel::IsSensible(rx, ry)) {
    trError("The smooth radius spans too many points.");
    return 0;
  }
  if (!Init(0, 0, input->width, input->height)) return 0;
  const ConeKernel kernel(rx, ry, true);
  const bool isDone = MakeRows(*this, "HeightfieldSmooth: Smoothing", [&](long row) {
    SmoothRow(*input, kernel, row, HfScanlineRaw(static_cast<int>(row)));
  });
  return isDone;
}

HeightfieldMedian::HeightfieldMedian() {
  Param(radius_, "kernel_radius", 2)
      .About(
          "Points to each side whose middle height is taken, 2 at least. Takes spikes out and keeps edges.");
}

void HeightfieldMedian::OnParamChanged(long index, trBase* who) {
  if (IsParam(index, &radius_) && radius_ < 2) SetParam("kernel_radius", 2, this);
  trHeightfield::OnParamChanged(index, who);
}

long HeightfieldMedian::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  if (!input) return MakeFlat(*this);
  if (radius_ > kMaxMedianRadius) {
    trError("The kernel radius spans too many points.");
    return 0;
  }
  if (!Init(0, 0, input->width, input->height)) return 0;
  const bool isDone = MakeRows(*this, "HeightfieldMedian: Computing", [&](long row) {
    float* const to = HfScanlineRaw(static_cast<int>(row));
    if (radius_ == 2 || radius_ == 3)
      MedianRowOfSmallRadius(*input, static_cast<int>(radius_), row, to);
    else
      MedianRowOfAnyRadius(*input, radius_, row, to);
  });
  return isDone;
}
