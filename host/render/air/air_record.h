// What a march met, by depth.
#pragma once

#include <vector>

#include "core/atmosphere.h"
#include "host/image/deep_picture.h"

namespace ovhost {

/// The steps of one ray's volumes, as its origin sees them. Per-thread state; reused without allocating.
class OV_API AirRecord {
 public:
  /// Takes them over from the integrator, which has just had `result` for a ray of so many metres. A sample
  /// reaches half way to the owner's samples before and behind it.
  void Take(const trAtomicIntegrator& integrator, const trAtomicIntegrator::Result& result, double length);
  /// By depth; they may overlap.
  const std::vector<DeepStep>& Steps() const { return steps_; }
  void Clear() { steps_.clear(); }

 private:
  std::vector<DeepStep> steps_;
  std::vector<int> order_;
};

}  // namespace ovhost
