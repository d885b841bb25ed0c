// The octave loop of a heightfield's fractal detail.
#include "heightfield/fractal_detail.h"

#include <cmath>

#include "core/noise.h"
#include "core/noise_pair.h"

FractalDetail::FractalDetail(const Settings& settings) : topFrequency_(0x1p15) {
  const double falloff = settings.roughness > 1e-12 ? std::exp2(-1.0 / settings.roughness) : 0.0;
  const double variation = 2 * std::fabs(settings.variation) * 1e-12 == 0 ? 2e-12 : settings.variation;
  double power = 1;
  for (double& amplitude : amplitude_) {
    amplitude = power * variation;
    power *= falloff;
  }
  for (int i = 0; i < kOctaves + kSecondOffset; ++i) noiseOffset_[i] = trNoff3(i);
  outputScale_ = 1 / settings.variation * settings.amount;
}

tr2Vector FractalDetail::Offset(double x, double y) const {
  double movedX = x, movedY = y, frequency = topFrequency_;
  for (int i = kOctaves - 1; i >= 0; --i, frequency *= 0.5) {
    const double a = amplitude_[i];
    if (std::fabs(a) <= 1e-12) continue;
    const trVector q(movedX * frequency, movedY * frequency, 0);
    const trVector forX = q + noiseOffset_[i], forY = q + noiseOffset_[i + kSecondOffset];
    double noise[2];
    trLerpNoise3Pair(&forX.x, &forY.x, nullptr, noise);
    movedX += a * noise[0];
    movedY += a * noise[1];
  }
  const tr2Vector offset((movedX - x) * outputScale_, (movedY - y) * outputScale_);
  // Without variation the scale is infinite: then there is no detail.
  return std::isfinite(offset.x) && std::isfinite(offset.y) ? offset : tr2Vector();
}
