// Asking within a cloud layer's own light: what that changes of a render state, and puts back.
#pragma once

#include "atmosphere/cloud_ray.h"

/// Goes one deeper: the scratch starts over for rays of that depth, and comes back with the ray, on every way
/// out. Draws taken meanwhile stay taken.
class CloudNesting {
 public:
  CloudNesting(trRenderState& state, CloudThread& thread) : thread_(thread), saved_(thread), ray_(state) {
    thread = CloudThread();
    thread.isHidden = saved_.isHidden;
    thread.inVoxelLighting = saved_.inVoxelLighting;
    thread.subdivision = state.CurrentRay().subdivision = ray_.saved.subdivision + 1;
  }
  ~CloudNesting() { thread_ = saved_; }
  CloudNesting(const CloudNesting&) = delete;
  CloudNesting& operator=(const CloudNesting&) = delete;

 private:
  CloudThread& thread_;
  const CloudThread saved_;
  const trRayGuard ray_;
};

/// Draws by keys in place of a state's own, which come back on every way out.
class CloudDraws {
 public:
  explicit CloudDraws(trRenderState& state) : random_(state.Shading().Random()), saved_(random_) {}
  ~CloudDraws() { random_ = saved_; }
  CloudDraws(const CloudDraws&) = delete;
  CloudDraws& operator=(const CloudDraws&) = delete;
  /// Starts over by another number.
  void Restart(std::uint64_t number) { random_ = {0x9e3779b97f4a7c15ull * (number + 1), 0}; }

 private:
  trRandomStream& random_;
  const trRandomStream saved_;
};
