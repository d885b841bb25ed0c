// Reads an integrator's samples again.
#include "host/render/air/air_record.h"

#include <algorithm>

#include "host/render/air/brightness.h"

namespace ovhost {
namespace {

float Held(float opacity) { return opacity > 0 ? std::min(opacity, 1.0f) : 0.0f; }

/// Half the way from sample i to the next one (`by` 1) or the one before (-1) of the same owner; negative
/// where none follows at once.
double HalfWay(const trAtomicIntegrator& integrator, int i, int by) {
  if (i + by < 0 || i + by >= integrator.NumSamples()) return -1;
  const trAtmosSample &here = integrator.Sample(i), &there = integrator.Sample(i + by);
  if (here.owner != there.owner || there.index != here.index + by) return -1;
  return std::max(0.0, (there.distance - here.distance) * by / 2);
}

}  // namespace

void AirRecord::Take(const trAtomicIntegrator& integrator, const trAtomicIntegrator::Result& result,
                     double length) {
  steps_.clear();
  order_.resize(static_cast<size_t>(integrator.NumSamples()));
  for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
  std::sort(order_.begin(), order_.end(), [&](int a, int b) {
    const double da = integrator.Sample(a).distance, db = integrator.Sample(b).distance;
    return da != db ? da < db : a < b;
  });
  trFCol left(1.0f), enviroLeft(1.0f);
  float covered = 0;
  for (const int i : order_) {
    const trAtmosSample& sample = integrator.Sample(i);
    DeepStep step;
    step.light = FiniteOrBlack(left * sample.colourDirect + enviroLeft * sample.colourEnviro);
    for (int c = 0; c < 3; ++c) {
      left[c] *= 1 - Held(sample.opacityDirect[c]);
      enviroLeft[c] *= 1 - Held(sample.opacityEnviro[c]);
    }
    step.cover = 1 - Brightness(left) - covered;
    if (step.light.IsBlack() && step.cover <= 0) continue;
    covered += step.cover;
    double before = HalfWay(integrator, i, -1), behind = HalfWay(integrator, i, 1);
    if (before < 0) before = std::max(behind, 0.0);
    if (behind < 0) behind = before;
    step.front = static_cast<float>(std::clamp(sample.distance - before, 0.0, length));
    step.back = static_cast<float>(std::clamp(sample.distance + behind, 0.0, length));
    steps_.push_back(step);
  }
  // What hardly anything gets past, nothing does.
  if (!steps_.empty()) steps_.back().cover += 1 - Brightness(result.transmittance) - covered;
}

}  // namespace ovhost
