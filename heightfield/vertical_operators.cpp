// Operators that change every height by itself.
#include "heightfield/vertical_operators.h"

#include <algorithm>
#include <cmath>

#include "core/idioms.h"

namespace {

constexpr trRange kHeights = {.min = -1000.0, .max = 1000.0};
constexpr trRange kFactors = {.min = -2.0, .max = 2.0};

/// Metres in raster units.
float Raster(double metres, double zScale) { return static_cast<float>(GuardedDivide(metres, zScale)); }

}  // namespace

HeightfieldAdjustVertical::HeightfieldAdjustVertical() {
  SetRange(heightHint_, this, kHeights);
  SetRange(multiplierHint_, this, kFactors);
  Param(setRange_, "set_height_range", 0).About("Brings the whole range of heights to the two below.");
  Gui(trGuiIndentOpen);
  Param(highest_, "highest", 100.0, &heightHint_).About("Height that the highest point gets, metres.");
  Param(lowest_, "lowest", 0.0, &heightHint_).About("Height that the lowest point gets, metres.");
  Gui(trGuiIndentClose);
  Param(multiply_, "multiply_height_by", 1).About("Multiplies heights, after the range is set.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(multiplier_, "height_multiplier", 1.0, &multiplierHint_)
      .About("Factor of the heights. 0 is flat, below 0 turns them over.");
  Param(add_, "add_height", 1).About("Raises or sinks all heights, at the end.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(addend_, "add_height_value", 0.0, &heightHint_).About("How far heights are raised, metres.");
}

long HeightfieldAdjustVertical::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  if (!input) return MakeFlat(*this);
  const double z = input->HfZScale();
  const float lowest = input->HfMinZ(), highest = input->HfMaxZ();
  float a = 1, b = 0;
  if (setRange_) {
    a = static_cast<float>(GuardedDivide(highest_ - lowest_, (static_cast<double>(highest) - lowest) * z));
    b = Raster(lowest_, z) - a * lowest;
  }
  const float m = multiply_ ? static_cast<float>(multiplier_) : 1.0f;
  const float c = add_ ? Raster(addend_, z) : 0.0f;
  const float factor = m * a, addend = m * b + c;
  return MapRows(*input, [=](const float* from, float* to, std::int64_t count) {
    for (std::int64_t x = 0; x < count; ++x) to[x] = from[x] * factor + addend;
  });
}

HeightfieldClipVertical::HeightfieldClipVertical() {
  SetRange(heightHint_, this, kHeights);
  Param(clipPeaks_, "clip_peaks", 1).About("Cuts off what is higher than a height.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(peaks_, "clip_peaks_value", 100.0, &heightHint_).About("That height, metres.");
  Param(clipValleys_, "clip_valleys", 1).About("Fills up what is lower than a height.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(valleys_, "clip_valleys_value", 0.0, &heightHint_).About("That height, metres.");
}

long HeightfieldClipVertical::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  if (!input) return MakeFlat(*this);
  const float highest = clipPeaks_ ? Raster(peaks_, HfZScale()) : INFINITY;
  const float lowest = clipValleys_ ? Raster(valleys_, HfZScale()) : -INFINITY;
  return MapRows(*input, [=](const float* from, float* to, std::int64_t count) {
    for (std::int64_t x = 0; x < count; ++x) to[x] = std::max(std::min(from[x], highest), lowest);
  });
}

HeightfieldCurveVertical::HeightfieldCurveVertical() {
  SetRange(heightHint_, this, kHeights);
  SetRange(curveHint_, this, kFactors);
  Param(glaciation_, "glaciation", 0.0, &curveHint_)
      .About("Above 0 widens valley floors and steepens peaks; below 0 makes plateaus over steep valleys.");
  Param(alternative_, "alternative_curve", 0)
      .About("Bends the upper end of the curve in place of the lower one.");
  Param(stretch_, "stretch", 0.0, &curveHint_)
      .About("Above 0 draws middle heights towards top and bottom; below 0 gathers them in the middle.");
  Param(useTop_, "top_of_curve", 0).About("Leaves heights above an altitude as they are.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(top_, "top_of_curve_alt", 1000.0, &heightHint_).About("That altitude, metres: where the curve ends.");
  Param(useBottom_, "bottom_of_curve", 0).About("Leaves heights below an altitude as they are.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(bottom_, "bottom_of_curve_alt", 0.0, &heightHint_)
      .About("That altitude, metres: where the curve begins.");
}

long HeightfieldCurveVertical::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  if (!input) return MakeFlat(*this);
  float lowest = input->HfMinZ(), highest = input->HfMaxZ();
  if (useBottom_) lowest = std::max(lowest, Raster(bottom_, input->HfZScale()));
  if (useTop_) highest = std::min(highest, Raster(top_, input->HfZScale()));
  const float depth = highest - lowest, inverse = 1.0f / GuardedDenominator(depth);
  const float glaciation = static_cast<float>(std::exp(alternative_ ? -glaciation_ : glaciation_)),
              stretch = static_cast<float>(std::exp(stretch_));
  const bool isAlternative = alternative_ != 0;
  return MapRows(*input, [=](const float* from, float* to, std::int64_t count) {
    for (std::int64_t x = 0; x < count; ++x) {
      const float height = from[x];
      if (!(height >= lowest && height <= highest)) {
        to[x] = height;
        continue;
      }
      const float share = (height - lowest) * inverse;
      const float t = isAlternative ? 1.0f - std::pow(1.0f - share, glaciation) : std::pow(share, glaciation);
      const float c = t + t - 1.0f;
      const float w = (1.0f - std::pow(1.0f - std::fabs(c), stretch)) * (c < 0 ? -1.0f : 1.0f);
      to[x] = (w + 1.0f) * 0.5f * depth + lowest;
    }
  });
}
