// Cutting overlaps, and merging.
#include "host/render/frame/deep_stack.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/render/air/brightness.h"

namespace ovhost {
namespace {

/// Depths nearer than this count as this far, metres.
constexpr double kNearest = 1e-3;

/// How much of a pixel is a step's doing.
double WeightOf(const DeepStep& step) {
  return std::fabs(step.cover) + std::fabs(static_cast<double>(Brightness(step.light)));
}

double Middle(const DeepStep& step) { return 0.5 * (static_cast<double>(step.front) + step.back); }

/// What shows of a merging, were something put between the two: the lesser one, more so the farther they are
/// apart.
double CostOf(const DeepStep& a, const DeepStep& b) {
  const double wa = WeightOf(a), wb = WeightOf(b);
  if (!(wa + wb > 0)) return 0;
  const double apart = std::log(std::max(Middle(b), kNearest) / std::max(Middle(a), kNearest));
  return wa * wb / (wa + wb) * std::sqrt(std::max(apart, 0.0));
}

/// A surface stays one beside less, and two surfaces become one between them.
DeepStep Merged(const DeepStep& a, const DeepStep& b) {
  const double wa = WeightOf(a), wb = WeightOf(b);
  DeepStep step;
  step.light = a.light + b.light;
  step.cover = a.cover + b.cover;
  step.front = a.front;
  step.back = b.back;
  if (a.IsSurface() && b.IsSurface())
    step.front = step.back =
        static_cast<float>(a.front + (b.front - a.front) * (wa + wb > 0 ? wb / (wa + wb) : 0));
  else if (a.IsSurface() && wa > wb)
    step.back = a.back;
  else if (b.IsSurface() && wb > wa)
    step.front = b.front;
  return step;
}

bool IsEmpty(const DeepStep& step) { return step.light.IsBlack() && step.cover == 0; }

}  // namespace

void DeepStack::Clear() { added_.clear(); }

void DeepStack::Add(const DeepStep& step, float times) {
  DeepStep& added = added_.emplace_back(step);
  added.light *= times;
  added.cover *= times;
}

const std::vector<DeepStep>& DeepStack::Resolve(size_t most) {
  CutAtEdges();
  MergeTo(most);
  return steps_;
}

void DeepStack::CutAtEdges() {
  edges_.clear();
  for (const DeepStep& step : added_) {
    edges_.push_back(step.front);
    edges_.push_back(step.back);
  }
  std::sort(edges_.begin(), edges_.end());
  edges_.erase(std::unique(edges_.begin(), edges_.end()), edges_.end());

  // A place at each edge, and one up to the next.
  cut_.assign(edges_.size() * 2, DeepStep());
  for (size_t i = 0; i < edges_.size(); ++i) {
    cut_[2 * i].front = cut_[2 * i].back = cut_[2 * i + 1].front = edges_[i];
    cut_[2 * i + 1].back = i + 1 < edges_.size() ? edges_[i + 1] : edges_[i];
  }
  for (const DeepStep& step : added_) {
    size_t i =
        static_cast<size_t>(std::lower_bound(edges_.begin(), edges_.end(), step.front) - edges_.begin());
    if (step.IsSurface()) {
      cut_[2 * i].light += step.light;
      cut_[2 * i].cover += step.cover;
      continue;
    }
    const double length = static_cast<double>(step.back) - step.front;
    for (; edges_[i] < step.back; ++i) {
      const auto share = static_cast<float>((static_cast<double>(edges_[i + 1]) - edges_[i]) / length);
      cut_[2 * i + 1].light += step.light * share;
      cut_[2 * i + 1].cover += step.cover * share;
    }
  }
  steps_.clear();
  for (const DeepStep& step : cut_)
    if (!IsEmpty(step)) steps_.push_back(step);
}

void DeepStack::MergeTo(size_t most) {
  if (steps_.size() <= most) return;
  costs_.clear();
  for (size_t i = 0; i + 1 < steps_.size(); ++i) costs_.push_back(CostOf(steps_[i], steps_[i + 1]));
  while (steps_.size() > most && steps_.size() > 1) {
    const auto at = std::min_element(costs_.begin(), costs_.end()) - costs_.begin();
    const auto i = static_cast<size_t>(at);
    steps_[i] = Merged(steps_[i], steps_[i + 1]);
    steps_.erase(steps_.begin() + at + 1);
    costs_.erase(costs_.begin() + at);
    if (i > 0) costs_[i - 1] = CostOf(steps_[i - 1], steps_[i]);
    if (i < costs_.size()) costs_[i] = CostOf(steps_[i], steps_[i + 1]);
  }
}

}  // namespace ovhost
