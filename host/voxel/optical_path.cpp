#include "host/voxel/optical_path.h"

#include <algorithm>
#include <cmath>

namespace ovhost::voxel {

OpticalPath::OpticalPath(trVoxelScatterMedium& medium, const trVoxelBuffer& grid, trRenderState& state,
                         const trVector& origin, const trVector& direction)
    : medium_(medium), grid_(grid), state_(state), origin_(origin), direction_(direction) {
  const trVector size = grid.EstimatedVoxelSize_WrongIfRotated(origin);
  const double probe = 1e-3 * std::min(size.x, std::min(size.y, size.z));
  trVector ahead;
  const bool isInside = grid.MapWorldToVoxel(origin, voxel_);
  // A point on the boundary may lie outside by rounding.
  if (!isInside) {
    trVector nudged = origin + direction * probe;
    isOutside_ = !grid.MapWorldToVoxel(nudged, voxel_);
    distance_ = isOutside_ ? 0 : probe;
  }
  if (isOutside_ || !(probe > 0)) {
    isOutside_ = true;
    return;
  }
  grid.MapWorldToVoxel(Point() + direction * probe, ahead);
  const trVector pace = (ahead - voxel_) / probe;
  const double fastest = std::max(std::fabs(pace.x), std::max(std::fabs(pace.y), std::fabs(pace.z)));
  step_ = 0.5 / std::max(fastest, 1e-9);
  here_ = medium_.Extinction(state_, Point());
  isOutside_ = !NextPoint();
}

bool OpticalPath::NextPoint() {
  if (isLast_) return false;
  nextDistance_ = distance_ + step_;
  if (!grid_.MapWorldToVoxel(origin_ + direction_ * nextDistance_, nextVoxel_)) {
    // Cut back to where the cube ends.
    const double size[3] = {double(grid_.SizeX()), double(grid_.SizeY()), double(grid_.SizeZ())};
    double share = 1;
    for (int axis = 0; axis < 3; ++axis) {
      const double from = voxel_[axis], to = nextVoxel_[axis];
      if (to < 0) share = std::min(share, from / (from - to));
      if (to > size[axis]) share = std::min(share, (size[axis] - from) / (to - from));
    }
    share = std::isfinite(share) ? std::clamp(share, 0.0, 1.0) : 0.0;
    // Not quite to the face, where rounding would find nothing.
    nextDistance_ = distance_ + step_ * share * (1.0 - 1e-5);
    isLast_ = true;
  }
  next_ = medium_.Extinction(state_, origin_ + direction_ * nextDistance_);
  return true;
}

bool OpticalPath::Advance(int channel, double depth) {
  while (!isOutside_) {
    const double length = nextDistance_ - distance_, from = here_[channel], slope = next_[channel] - from;
    const double wanted = depth - depth_[channel];
    if (0.5 * (from + next_[channel]) * length >= wanted) {
      // The root of from x + slope x^2 / (2 length) = wanted that stays exact as the slope vanishes.
      const double root =
          std::sqrt(std::max(0.0, from * from + 2.0 * slope * wanted / std::max(length, 1e-12)));
      const double x = std::clamp(from + root > 0 ? 2.0 * wanted / (from + root) : 0.0, 0.0, length);
      const double share = length > 0 ? x / length : 0;
      const trFCol before = here_;
      here_ = here_ + (next_ - here_) * static_cast<float>(share);
      for (int c = 0; c < 3; ++c) depth_[c] += 0.5 * (before[c] + here_[c]) * x;
      voxel_ = voxel_ + (nextVoxel_ - voxel_) * share;
      distance_ += x;
      return true;
    }
    for (int c = 0; c < 3; ++c) depth_[c] += 0.5 * (here_[c] + next_[c]) * length;
    here_ = next_;
    distance_ = nextDistance_;
    voxel_ = nextVoxel_;
    isOutside_ = !NextPoint();
  }
  return false;
}

}  // namespace ovhost::voxel
