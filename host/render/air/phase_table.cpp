// Tabulated scattering.
#include "host/render/air/phase_table.h"

#include <algorithm>
#include <cmath>

#include "host/base/tangents.h"

namespace ovhost {

PhaseTable::PhaseTable(const trAtmosShader& volume)
    : cosine_(kCells + 1), value_(kCells + 1), below_(kCells + 1) {
  for (int i = 0; i <= kCells; ++i) {
    const double x = static_cast<double>(i) / kCells;
    cosine_[i] = 1 - 2 * x * x * x * x;
    const double value = volume.PhaseFunction(cosine_[i]);
    value_[i] = value > 0 && std::isfinite(value) ? value : 0;
    if (i > 0) below_[i] = below_[i - 1] + 0.5 * (value_[i - 1] + value_[i]) * (cosine_[i - 1] - cosine_[i]);
  }
  const double sum = below_[kCells];
  if (!(sum > 0)) {
    // Nothing to go by: even.
    for (int i = 0; i <= kCells; ++i) {
      value_[i] = 1;
      below_[i] = 0.5 * (1 - cosine_[i]);
    }
    return;
  }
  for (int i = 0; i <= kCells; ++i) {
    value_[i] *= 2 / sum;
    below_[i] /= sum;
  }
}

float PhaseTable::Value(double cosine) const {
  const double x = std::sqrt(std::sqrt(std::clamp(0.5 * (1 - cosine), 0.0, 1.0))) * kCells;
  const int i = std::min(static_cast<int>(x), kCells - 1);
  const double width = cosine_[i] - cosine_[i + 1];
  const double weight = std::clamp((cosine_[i] - cosine) / width, 0.0, 1.0);
  return static_cast<float>(value_[i] + (value_[i + 1] - value_[i]) * weight);
}

double PhaseTable::SampleCosine(double draw) const {
  const auto found = std::upper_bound(below_.begin() + 1, below_.end() - 1, draw);
  const auto i = static_cast<size_t>(found - below_.begin()) - 1;
  const double width = cosine_[i] - cosine_[i + 1], chance = below_[i + 1] - below_[i];
  if (!(chance > 0)) return cosine_[i];
  const double share = std::clamp((draw - below_[i]) / chance, 0.0, 1.0);
  // A density that is linear over the cell: the root of its integral that lies inside.
  const double a = value_[i], b = value_[i + 1];
  const double root = std::sqrt(a * a + share * (b * b - a * a));
  const double x = a + root > 0 ? share * (a + b) / (a + root) : share;
  return cosine_[i] - std::clamp(x, 0.0, 1.0) * width;
}

trVector PhaseTable::Sample(const trVector& direction, const tr2Vector& draw) const {
  const double cosine = SampleCosine(draw.x), turn = 2 * 3.14159265358979 * draw.y;
  const double sine = std::sqrt(std::fmax(1 - cosine * cosine, 0));
  trVector side, front;
  MakeTangents(direction, side, front);
  return Normalised(direction * cosine + side * (sine * std::cos(turn)) + front * (sine * std::sin(turn)));
}

}  // namespace ovhost
