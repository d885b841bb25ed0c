#include "host/voxel/half_space.h"

#include <algorithm>
#include <cmath>

namespace ovhost::voxel {
namespace {

constexpr double kPi = 3.14159265358979323846;
/// Past this depth all is even.
constexpr double kDeepest = 20;
/// Directions of a half space, at the points of Gauss's rule for 0 to 1.
constexpr int kStreams = 8, kAllStreams = 2 * kStreams;
constexpr double kNode[kStreams] = {0.01985507175123188, 0.10166676129318664, 0.2372337950418355,
                                    0.4082826787521751,  0.5917173212478249,  0.7627662049581645,
                                    0.8983332387068134,  0.9801449282487681};
constexpr double kWeight[kStreams] = {0.05061426814518813, 0.11119051722668724, 0.15685332293894364,
                                      0.18134189168918100, 0.18134189168918100, 0.15685332293894364,
                                      0.11119051722668724, 0.05061426814518813};
constexpr int kAzimuths = 32, kInStream = 8;
/// What changes over a few free paths settles soon; nothing else is asked for.
constexpr int kRounds = 40, kRoundsOfEscape = 300;

/// Streams run down, then up; the cosine is with straight down.
double StreamCosine(int stream) { return stream < kStreams ? kNode[stream] : -kNode[stream - kStreams]; }
double StreamWeight(int stream) { return kWeight[stream % kStreams]; }

double DepthOf(int i, int count) {
  const double share = static_cast<double>(i) / (count - 1);
  return kDeepest * share * share;
}

/// What a step along a stream lets through, and takes of a source that runs evenly from its beginning to its
/// end.
struct Step {
  explicit Step(double length) : through(std::exp(-length)) {
    const double mean = length > 1e-3 ? (1 - through) / length : 1 - length / 2;
    begin = mean - through;
    end = 1 - mean;
  }
  double through, begin, end;
};

/// Radiances of all streams at all depths, swept down and up time and again.
class Sweeps {
 public:
  /// `turned` is how much of a direction's light goes into each stream: from each of the streams, row by row.
  Sweeps(const std::vector<double>& turned, double albedo, int numDepths)
      : turned_(turned), albedo_(albedo), numDepths_(numDepths) {
    radiance_.resize(static_cast<size_t>(numDepths) * kAllStreams);
    source_.resize(radiance_.size());
    for (int i = 1; i < numDepths; ++i)
      for (const double stream : kNode)
        steps_.emplace_back((DepthOf(i, numDepths) - DepthOf(i - 1, numDepths)) / stream);
  }
  /// Begins with even light at each depth.
  template <typename Even>
  void Start(const Even& even) {
    for (int i = 0; i < numDepths_; ++i)
      for (int s = 0; s < kAllStreams; ++s) At(i, s) = even(DepthOf(i, numDepths_));
  }
  /// `light` is how much of a light there is at each depth, `ofLight` how much of it goes into each stream.
  /// At the bottom `inflow` comes up; below 0: all that came down.
  void Run(int rounds, const double* light, const double* ofLight, double inflow) {
    for (int round = 0; round < rounds; ++round) {
      Scatter(light, ofLight);
      for (int s = 0; s < kStreams; ++s) {
        double here = At(0, s) = 0;
        for (int i = 1; i < numDepths_; ++i) here = At(i, s) = Onward(here, i - 1, i, s, s);
        if (inflow >= 0) here = inflow;
        At(numDepths_ - 1, kStreams + s) = here;
        for (int i = numDepths_ - 1; i > 0; --i)
          here = At(i - 1, kStreams + s) = Onward(here, i, i - 1, s, kStreams + s);
      }
    }
  }
  double Mean(int depth) {
    double mean = 0;
    for (int s = 0; s < kAllStreams; ++s) mean += 0.5 * StreamWeight(s) * At(depth, s);
    return mean;
  }
  double& At(int depth, int stream) { return radiance_[static_cast<size_t>(depth) * kAllStreams + stream]; }

 private:
  void Scatter(const double* light, const double* ofLight) {
    for (int i = 0; i < numDepths_; ++i)
      for (int to = 0; to < kAllStreams; ++to) {
        double sum = light ? light[i] * ofLight[to] : 0;
        for (int from = 0; from < kAllStreams; ++from)
          sum += 0.5 * StreamWeight(from) * At(i, from) * turned_[from * kAllStreams + to];
        source_[static_cast<size_t>(i) * kAllStreams + to] = albedo_ * sum;
      }
  }
  double Onward(double radiance, int from, int to, int step, int stream) const {
    const Step& taken = steps_[static_cast<size_t>(std::min(from, to)) * kStreams + step];
    return radiance * taken.through +
           taken.begin * source_[static_cast<size_t>(from) * kAllStreams + stream] +
           taken.end * source_[static_cast<size_t>(to) * kAllStreams + stream];
  }

  const std::vector<double>& turned_;
  const double albedo_;
  const int numDepths_;
  std::vector<Step> steps_;
  std::vector<double> radiance_, source_;
};

}  // namespace

double HalfSpace::CosineOf(int height) {
  const double root = 0.2 + 0.8 * height / (kHeights - 1);
  return root * root;
}

HalfSpace::HalfSpace(const PhaseTable& phase, double albedo) {
  // The phase function's mean over azimuths between two inclinations.
  const auto between = [&](double a, double b) {
    const double sines = std::sqrt(std::max(0.0, (1 - a * a) * (1 - b * b)));
    double sum = 0;
    for (int i = 0; i < kAzimuths; ++i)
      sum += phase.Value(a * b + sines * std::cos((i + 0.5) * kPi / kAzimuths));
    return sum / kAzimuths;
  };
  // To all that a stream stands for.
  const auto toStream = [&](double from, int to) {
    double low = 0;
    for (int i = 0; i < to % kStreams; ++i) low += kWeight[i];
    double sum = 0;
    for (int i = 0; i < kInStream; ++i) {
      const double cosine = low + StreamWeight(to) * (i + 0.5) / kInStream;
      sum += between(from, to < kStreams ? cosine : -cosine);
    }
    return sum / kInStream;
  };
  // From a direction to all streams. What these are too coarse for goes straight on, so that nothing is lost.
  const auto addRow = [&](double from, std::vector<double>& rows) {
    const size_t first = rows.size();
    double sum = 0;
    int nearest = 0;
    for (int to = 0; to < kAllStreams; ++to) {
      rows.push_back(toStream(from, to));
      sum += 0.5 * StreamWeight(to) * rows.back();
      if (std::fabs(StreamCosine(to) - from) < std::fabs(StreamCosine(nearest) - from)) nearest = to;
    }
    double& ahead = rows[first + nearest];
    const double weight = 0.5 * StreamWeight(nearest), others = sum - weight * ahead;
    ahead = std::max(0.0, 1 - others) / weight;
    if (others > 1)
      for (int to = 0; to < kAllStreams; ++to) rows[first + to] /= others;
  };
  std::vector<double> turned;
  for (int from = 0; from < kAllStreams; ++from) addRow(StreamCosine(from), turned);
  Sweeps sweeps(turned, albedo, kDepths);
  mean_.assign(kHeights * kDepths, 0);
  const bool isWhite = albedo > 0.999;
  for (int height = 0; height < kHeights; ++height) {
    const double cosine = CosineOf(height);
    std::vector<double> light, ofLight;
    for (int i = 0; i < kDepths; ++i) light.push_back(std::exp(-DepthOf(i, kDepths) / cosine));
    addRow(cosine, ofLight);
    // From Eddington's approximation on.
    sweeps.Start([&](double depth) {
      return isWhite ? 3 * cosine * cosine * (1 - std::exp(-depth / cosine)) + 2 * cosine : 0.0;
    });
    sweeps.Run(kRounds, light.data(), ofLight.data(), -1);
    const double deep = sweeps.Mean(kDepths - 1);
    for (int i = 0; i < kDepths; ++i) mean_[height * kDepths + i] = static_cast<float>(sweeps.Mean(i) - deep);
  }

  // What comes to be deep inside of a light is what comes out towards it of light from the deep
  // (reciprocity).
  const double offset = 2.0 / 3 / (1 - phase.MeanCosine());
  sweeps.Start([&](double depth) { return (depth + offset) / (kDeepest + offset); });
  sweeps.Run(kRoundsOfEscape, nullptr, nullptr, 1);
  for (int height = 0; height < kHeights; ++height) {
    const double cosine = CosineOf(height);
    int s = 0;
    while (s < kStreams - 2 && kNode[s + 1] < cosine) ++s;
    const double f = (cosine - kNode[s]) / (kNode[s + 1] - kNode[s]);
    const double out = sweeps.At(0, kStreams + s) * (1 - f) + sweeps.At(0, kStreams + s + 1) * f;
    share_.push_back(static_cast<float>(out / (3 * cosine + 2)));
  }
  const float straight = share_.back();
  for (float& share : share_) share /= straight;
}

double HalfSpace::Change(double cosine, double depth) const {
  if (mean_.empty()) return 0;
  const double x = std::clamp((std::sqrt(std::max(cosine, 0.0)) - 0.2) / 0.8, 0.0, 1.0) * (kHeights - 1);
  const double y = std::sqrt(std::clamp(depth / kDeepest, 0.0, 1.0)) * (kDepths - 1);
  const int i = std::min(static_cast<int>(x), kHeights - 2), j = std::min(static_cast<int>(y), kDepths - 2);
  const double f = x - i, h = y - j;
  const float* const low = &mean_[i * kDepths + j];
  const float* const high = low + kDepths;
  return (1 - f) * ((1 - h) * low[0] + h * low[1]) + f * ((1 - h) * high[0] + h * high[1]);
}

double HalfSpace::DeepShare(double cosine) const {
  if (share_.empty()) return 1;
  const double x = std::clamp((std::sqrt(std::max(cosine, 0.0)) - 0.2) / 0.8, 0.0, 1.0) * (kHeights - 1);
  const int i = std::min(static_cast<int>(x), kHeights - 2);
  return share_[i] + (share_[i + 1] - share_[i]) * (x - i);
}

}  // namespace ovhost::voxel
