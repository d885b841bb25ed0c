#include "host/voxel/scatter_phase.h"

#include <algorithm>
#include <cmath>

namespace ovhost::voxel {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

PhaseTable::PhaseTable(const std::function<double(double)>& phase) {
  const double step = kPi / kAngles;
  double sum = 0, cosines = 0;
  cumulated_[0] = 0;
  for (int i = 0; i <= kAngles; ++i) {
    const double value = phase(std::cos(i * step));
    value_[i] = std::isfinite(value) && value > 0 ? value : 0;
  }
  for (int pass = 0; pass < 2; ++pass) {
    sum = cosines = 0;
    for (int i = 0; i < kAngles; ++i) {
      // The solid angle between two cones, half of the sphere's mean, and the mean of their values.
      const double low = std::cos(i * step), high = std::cos((i + 1) * step);
      const double share = 0.25 * (low - high) * (value_[i] + value_[i + 1]);
      sum += share;
      cosines += share * 0.5 * (low + high);
      cumulated_[i + 1] = sum;
    }
    if (sum > 1e-12) break;
    value_.fill(1.0);
  }
  for (double& value : value_) value /= sum;
  for (double& value : cumulated_) value /= sum;
  meanCosine_ = cosines / sum;
}

double PhaseTable::Value(double cosAngle) const {
  const double at = std::acos(std::clamp(cosAngle, -1.0, 1.0)) * (kAngles / kPi);
  const int i = std::min(static_cast<int>(at), kAngles - 1);
  return value_[i] + (value_[i + 1] - value_[i]) * (at - i);
}

trVector PhaseTable::Sample(const trVector& axis, double u, double v) const {
  const auto above = std::upper_bound(cumulated_.begin() + 1, cumulated_.end() - 1, u);
  const int i = static_cast<int>(above - cumulated_.begin()) - 1;
  const double width = cumulated_[i + 1] - cumulated_[i];
  const double f = width > 0 ? std::clamp((u - cumulated_[i]) / width, 0.0, 1.0) : 0.5;
  const double low = std::cos(i * kPi / kAngles), high = std::cos((i + 1) * kPi / kAngles);
  return TurnedFrom(axis, low + (high - low) * f, 2.0 * kPi * v);
}

trVector TurnedFrom(const trVector& axis, double cosAngle, double azimuth) {
  // An orthonormal basis without branches on its way (Duff et al., JCGT 6, 2017).
  const double sign = std::copysign(1.0, axis.z), a = -1.0 / (sign + axis.z), b = axis.x * axis.y * a;
  const trVector s(1.0 + sign * axis.x * axis.x * a, sign * b, -sign * axis.x);
  const trVector t(b, sign + axis.y * axis.y * a, -axis.y);
  const double sine = std::sqrt(std::max(0.0, 1.0 - cosAngle * cosAngle));
  return s * (sine * std::cos(azimuth)) + t * (sine * std::sin(azimuth)) + axis * cosAngle;
}

}  // namespace ovhost::voxel
