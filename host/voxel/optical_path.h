// Straight lines through a medium that lies in a projector's cube: optical depths and free paths.
#pragma once

#include "core/voxel.h"

namespace ovhost::voxel {

/// Extinction between the points where it is asked for, half a cell apart, is taken to run evenly: as it does
/// in the medium's own voxels but for its kinks.
class OpticalPath {
 public:
  /// `grid` tells where the medium ends and how fine it is.
  OpticalPath(trVoxelScatterMedium& medium, const trVoxelBuffer& grid, trRenderState& state,
              const trVector& origin, const trVector& direction);

  /// Goes on until the optical depth of `channel` has come to `depth`, or out of the medium; true for the
  /// first.
  bool Advance(int channel, double depth);
  /// How far from the origin, metres; and the point.
  double Distance() const { return distance_; }
  trVector Point() const { return origin_ + direction_ * distance_; }
  /// Of all channels, so far.
  const double* Depth() const { return depth_; }
  /// At Point().
  const trFCol& Extinction() const { return here_; }

 private:
  bool NextPoint();

  trVoxelScatterMedium& medium_;
  const trVoxelBuffer& grid_;
  trRenderState& state_;
  const trVector origin_, direction_;
  double distance_ = 0, step_ = 0, depth_[3] = {0, 0, 0};
  trVector voxel_, nextVoxel_;
  trFCol here_, next_;
  double nextDistance_ = 0;
  bool isLast_ = false, isOutside_ = false;
};

}  // namespace ovhost::voxel
