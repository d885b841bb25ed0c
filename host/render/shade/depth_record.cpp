// Steps of camera samples.
#include "host/render/shade/depth_record.h"

#include <algorithm>
#include <cmath>

namespace ovhost {

void CountVolumes(std::span<const DeepStep> steps, const trFCol& transmittance, CameraSample& sample) {
  double weights = 0, depths = 0;
  for (const DeepStep& step : steps) {
    weights += step.cover;
    depths += step.cover * 0.5 * (static_cast<double>(step.front) + step.back);
  }
  if (!(weights > 0)) return;
  const float before = Brightness(sample.volumeOpacity);
  sample.volumeOpacity = trFCol(1.0f) - (trFCol(1.0f) - sample.volumeOpacity) * transmittance;
  const float all = Brightness(sample.volumeOpacity);
  if (all > 0)
    sample.volumeDepth += (static_cast<float>(depths / weights) - sample.volumeDepth) * (1 - before / all);
}

void AddVolumesBehind(const std::vector<DeepStep>& steps, const trFCol& transmittance, double start,
                      const trFCol& throughput, CameraSample& sample) {
  const auto first = static_cast<std::ptrdiff_t>(sample.steps->size());
  const auto from = static_cast<float>(start);
  for (DeepStep step : steps) {
    step.front += from;
    step.back += from;
    step.light *= throughput;
    step.cover *= Brightness(throughput);
    sample.steps->push_back(step);
  }
  CountVolumes({sample.steps->begin() + first, sample.steps->end()}, transmittance, sample);
}

void AddScattering(double distance, double footprint, const trFCol& light, const trFCol& throughput,
                   CameraSample& sample) {
  const auto front = static_cast<float>(std::max(0.0, distance - footprint / 2)),
             back = static_cast<float>(distance + footprint / 2);
  sample.steps->push_back({front, back, light, Brightness(throughput)});
  CountVolumes({&sample.steps->back(), 1}, {}, sample);
}

void AddSurface(double distance, const trFCol& light, float cover, CameraSample& sample) {
  const auto depth = static_cast<float>(distance);
  sample.steps->push_back({depth, depth, light, cover});
}

}  // namespace ovhost
