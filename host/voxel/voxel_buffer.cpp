// The shape of voxel grids.
#include <algorithm>
#include <cmath>

#include "core/voxel.h"

bool trVoxelBuffer::SetDimensions(const trVoxelProjector* projector, int nx, int ny, int nz) {
  const int size[3] = {std::max(nx, 1), std::max(ny, 1), std::max(nz, 1)};
  const double cells = double(size[0]) * size[1] * size[2];
  const bool ok = projector && cells <= 2147483648.0;
  projector_ = ok ? projector : nullptr;
  for (int axis = 0; axis < 3; ++axis) size_[axis] = ok ? size[axis] : 0;
  return ok;
}

void trVoxelBuffer::GetIdealSizeFromBoundingBox(const trBoundingBox& box, double voxelCount, int& nx, int& ny,
                                                int& nz) {
  const trVector size = box.Size();
  const double edge = std::cbrt(GuardedDivide(size.x * size.y * size.z, std::max(voxelCount, 1.0)));
  const auto cells = [edge](double length) {
    const double n = std::round(GuardedDivide(length, edge));
    return n >= 1.0 ? static_cast<int>(std::min(n, 1e6)) : 1;
  };
  nx = cells(size.x);
  ny = cells(size.y);
  nz = cells(size.z);
}

trVector trVoxelBuffer::EstimatedVoxelSize_WrongIfRotated(const trVector& world) const {
  if (!projector_) return {};
  const trVector s = projector_->EstimatedScaling_WrongIfRotated(world);
  return {s.x / size_[0], s.y / size_[1], s.z / size_[2]};
}

double trVoxelBuffer::MinVoxelEdgeLength_WrongIfRotated(const trVector& world) const {
  const trVector s = EstimatedVoxelSize_WrongIfRotated(world);
  return std::min(s.x, std::min(s.y, s.z));
}

bool trVoxelBuffer::MapWorldToVoxel(const trVector& world, trVector& voxel) const {
  if (!projector_) return false;
  trVector local;
  projector_->MapWorldToLocal(world, local);
  voxel = {local.x * size_[0], local.y * size_[1], local.z * size_[2]};
  for (int axis = 0; axis < 3; ++axis)
    if (!(voxel[axis] >= 0 && voxel[axis] <= size_[axis])) return false;
  return true;
}

void trVoxelBuffer::MapVoxelToWorld(const trVector& voxel, trVector& world) const {
  if (!projector_) return;
  projector_->MapLocalToWorld({voxel.x / size_[0], voxel.y / size_[1], voxel.z / size_[2]}, world);
}

trBoundingBox trVoxelBuffer::CalculateBoundingBoxOfVoxelRange(int x0, int y0, int z0, int x1, int y1,
                                                              int z1) const {
  trBoundingBox box;
  if (!projector_) return box;
  for (int corner = 0; corner < 8; ++corner) {
    trVector world;
    MapVoxelToWorld(
        {double(corner & 1 ? x1 : x0), double(corner & 2 ? y1 : y0), double(corner & 4 ? z1 : z0)}, world);
    box.Union(world);
  }
  return box;
}
