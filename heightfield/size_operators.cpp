// Crop and resize.
#include "heightfield/size_operators.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/guarded.h"
#include "heightfield/resampling.h"

HeightfieldCrop::HeightfieldCrop() {
  Param(crop_, "crop", 1).About("Kept for older projects; without effect.");
  Param(bottomLeft_, "bottom_left", tr2Vector(0, 0))
      .About("South-western point of the part, counted from the field's own at 0, 0.");
  Param(topRight_, "top_right", tr2Vector(99, 99)).About("North-eastern point of the part.");
  Param(includeTopRight_, "include_top_right", 1)
      .About("Counts that last row and column in. Off, the part ends before them.");
  Param(pad_, "pad_outside_original", 0)
      .About("Lets the part reach beyond the field, with ground of height 0 there.");
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
  return MakeRows(*this, "Cropping heightfield", copyRow);
}

HeightfieldResize::HeightfieldResize() {
  Param(resample_, "re-sample_pixels", 0)
      .About("Gives the field another number of points over the same ground.");
  Gui(trGuiIndentOpen);
  Param(sizeInPixels_, "size_in_pixels", tr2Vector(1000, 1000))
      .About("Points from west to east and from south to north.");
  Gui(trGuiIndentClose);
  Param(resize_, "re-size_in_metres", 1).About("Gives the field another extent.");
  Gui(trGuiIndentOpen);
  Param(sizeInMetres_, "size_in_metres", tr2Vector(10000, 10000))
      .About("Extent from west to east and from south to north, metres.");
  // A project from before this parameter scales heights along; new nodes leave them.
  Param(rescaleVertical_, "re-scale_vertical", 1)
      .About("Makes heights larger or smaller along with the extent. Off, they stay.");
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
    FillByResampling(*this, *input, GuardedDivide(static_cast<double>(input->HfXSize()), newX),
                     GuardedDivide(static_cast<double>(input->HfYSize()), newY));
  } else {
    Fill(0);
    HfSetMinZ(0);
    HfSetMaxZ(0);
  }
  return 1;
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
