// Filter shapes and their inverse integrals.
#include "host/render/engine/pixel_filter.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979;
constexpr int kTableSize = 1024;

/// Filter weight at x, -1 to 1 over the width.
double Weight(PixelFilter::Shape shape, double x) {
  if (shape == PixelFilter::Shape::kGaussian) {
    // A third of the half width is a standard deviation; what is left at the end is taken off.
    constexpr double kEnd = 0.011108996538242306;  // exp(-4.5)
    return std::exp(-4.5 * x * x) - kEnd;
  }
  // Four-term window (Harris, On the Use of Windows, 1978).
  const double t = kPi * (x + 1);
  return 0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
}

/// Where the running integral of a shape reaches i / kTableSize of the whole.
std::vector<float> InverseIntegral(PixelFilter::Shape shape) {
  constexpr int kSteps = 16384;
  std::vector<double> sum(kSteps + 1);
  for (int i = 0; i < kSteps; ++i) sum[i + 1] = sum[i] + Weight(shape, (i + 0.5) / kSteps * 2 - 1);
  std::vector<float> inverse(kTableSize + 1);
  int at = 0;
  for (int i = 0; i <= kTableSize; ++i) {
    const double wanted = sum[kSteps] * i / kTableSize;
    while (at < kSteps - 1 && sum[at + 1] < wanted) ++at;
    const double step = sum[at + 1] - sum[at];
    const double part = step > 0 ? std::clamp((wanted - sum[at]) / step, 0.0, 1.0) : 0.0;
    inverse[i] = static_cast<float>((at + part) / kSteps * 2 - 1);
  }
  return inverse;
}

}  // namespace

PixelFilter::PixelFilter(Shape shape, double width)
    : shape_(shape), halfWidth_(width > 0 ? std::min(width, 16.0) / 2 : 0) {
  if (shape == Shape::kGaussian || shape == Shape::kBlackmanHarris)
    inverse_ = std::make_shared<const std::vector<float>>(InverseIntegral(shape));
}

double PixelFilter::Offset(double draw) const {
  if (shape_ == Shape::kTent)
    return (draw < 0.5 ? std::sqrt(2 * draw) - 1 : 1 - std::sqrt(2 - 2 * draw)) * halfWidth_;
  if (!inverse_) return (2 * draw - 1) * halfWidth_;
  const double at = std::clamp(draw, 0.0, 1.0) * kTableSize;
  const int i = std::min(static_cast<int>(at), kTableSize - 1);
  const double low = (*inverse_)[i], high = (*inverse_)[i + 1];
  return (low + (high - low) * (at - i)) * halfWidth_;
}

}  // namespace ovhost
