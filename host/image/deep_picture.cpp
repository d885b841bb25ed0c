// Deep samples from steps, and the files of them.
#include "host/image/deep_picture.h"

#include <algorithm>
#include <cmath>

#include "host/base/atomic_file.h"
#include "host/image/codec/encoder.h"
#include "host/image/codec_library.h"
#include "host/image/encoded_picture.h"
#include "host/image/half.h"

namespace ovhost {
namespace {

/// The greatest half below 1. What has light behind it hides no more than that, so that the light can count.
constexpr float kNearlyOpaque = 1 - 0x1p-11f;

float Rounded(float value, bool toHalf) { return toHalf ? RoundedToHalf(value) : value; }

/// Whether halves hold the light of all samples.
bool FitsHalves(const Picture& picture, const DeepPixels& pixels) {
  std::vector<DeepStep> steps;
  std::vector<DeepSample> samples;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      pixels.Steps(x, y, steps);
      SamplesOfSteps(steps, true, samples);
      for (const DeepSample& sample : samples)
        for (int c = 0; c < 3; ++c)
          if (!(std::fabs(sample.light[c]) <= kGreatestHalf)) return false;
    }
  return true;
}

}  // namespace

void SamplesOfSteps(const std::vector<DeepStep>& steps, bool roundsToHalf, std::vector<DeepSample>& samples) {
  samples.clear();
  double covered = 0;
  float left = 1;  // past the samples as they are rounded
  for (size_t i = 0; i < steps.size(); ++i) {
    const DeepStep& step = steps[i];
    DeepSample& sample = samples.emplace_back();
    sample.front = step.front;
    sample.back = step.back;
    for (int c = 0; c < 3; ++c) sample.light[c] = Rounded(step.light[c] / left, roundsToHalf);
    covered += step.cover;
    const float alpha = 1 - static_cast<float>(std::clamp(1 - covered, 0.0, 1.0)) / left;
    sample.alpha = std::clamp(Rounded(std::max(alpha, 0.0f), roundsToHalf), 0.0f,
                              i + 1 < steps.size() ? kNearlyOpaque : 1.0f);
    left *= 1 - sample.alpha;
  }
}

bool HoldsDepths(const std::string& path) { return HoldsLayers(path); }

std::string WriteDeepPicture(const std::string& path, const Picture& picture, const DeepPixels& pixels) {
  std::string problem;
  auto* const encode = reinterpret_cast<DeepEncoder*>(CodecFunction("ovEncodeDeepPicture", problem));
  if (!encode) return path + ": " + problem;
  DeepEncodeJob job;
  job.path = &path;
  job.picture = &picture;
  job.fullFloat = !FitsHalves(picture, pixels);
  std::vector<DeepStep> steps;
  job.samples = [&](int x, int y, std::vector<DeepSample>& samples) {
    pixels.Steps(x, y, steps);
    SamplesOfSteps(steps, !job.fullFloat, samples);
  };
  if (!encode(job)) return path + ": " + job.problem;
  problem = EncodedProblem(path, job.bytes.data(), job.bytes.size(), picture.width, picture.height);
  if (!problem.empty()) return path + ": " + problem;
  return WriteFileAtomically(path, job.bytes.data(), job.bytes.size());
}

}  // namespace ovhost
