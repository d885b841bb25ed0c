// The steps of a pixel, put in order and held to so many.
#pragma once

#include <vector>

#include "host/image/deep_picture.h"

namespace ovhost {

/// Adds steps of many samples up. Per-thread state; reused without allocating.
class OV_API DeepStack {
 public:
  void Clear();
  /// A step, so many times.
  void Add(const DeepStep& step, float times = 1);
  void Add(const std::vector<DeepStep>& steps, float times = 1) {
    for (const DeepStep& step : steps) Add(step, times);
  }
  /// All that was added, front to back and none over another, by so many steps at most: neighbours were
  /// merged whose merging shows least. Nothing that they add up to is lost. The stack is used up.
  const std::vector<DeepStep>& Resolve(size_t most);

 private:
  void CutAtEdges();
  void MergeTo(size_t most);

  std::vector<DeepStep> added_, cut_, steps_;
  std::vector<float> edges_;
  std::vector<double> costs_;
};

}  // namespace ovhost
