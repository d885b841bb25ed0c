// Projectors of voxel grids: boxes of the world, boxes bent round a planet, boxes that a transform places.
#include <algorithm>
#include <cmath>

#include "core/voxel.h"

void trVoxelBoxProjector::Init(const trBoundingBox& box) {
  min_ = box.IsEmpty() ? trVector() : box.min;
  size_ = box.Size();
  for (int axis = 0; axis < 3; ++axis) {
    if (!std::isfinite(min_[axis])) min_[axis] = 0;
    if (!(size_[axis] > 1e-12) || !std::isfinite(size_[axis])) size_[axis] = 1e-12;
    invSize_[axis] = 1.0 / size_[axis];
  }
}

void trVoxelBoxProjector::MapWorldToLocal(const trVector& world, trVector& local) const {
  local = (world - min_) * invSize_;
}

void trVoxelBoxProjector::MapLocalToWorld(const trVector& local, trVector& world) const {
  world = min_ + local * size_;
}

trTransform<double> trVoxelBoxProjector::GetTransformLocalToWorld() const {
  return trTranslate(min_) * trScale(size_.x, size_.y, size_.z);
}

void trVoxelPlanetLimbProjector::Init(const trBoundingBox& box, const trVector& localCentre,
                                      const trVector& planetCentre, double radius, double altitude) {
  trVoxelBoxProjector::Init(box);
  localCentre_ = localCentre;
  planetCentre_ = planetCentre;
  radius_ = (localCentre - planetCentre).Length();
  up_ = {0, 1, 0};
  if (radius_ > 1e-6 && std::isfinite(radius_))
    up_ = (localCentre - planetCentre) / radius_;
  else
    radius_ = std::isfinite(altitude) && altitude > 1e-6 ? altitude : std::max(radius, 1e-6);
  // The shortest rotation from +y to up_; opposite to it any will do.
  const double turn = 1.0 + up_.y;
  right_ = {1, 0, 0};
  if (turn > 1e-6) right_ = {1.0 - up_.x * up_.x / turn, -up_.x, -up_.x * up_.z / turn};
  // A planet's radius shows the least slant.
  for (int i = 0; i < 2; ++i) right_ = Normalised(right_ - up_ * Dot(right_, up_));
  forward_ = Cross(right_, up_);
}

void trVoxelPlanetLimbProjector::MapWorldToLocal(const trVector& world, trVector& local) const {
  // All differences are taken from localCentre_: from the planet's centre, millimetres would be lost.
  const trVector offset = world - localCentre_;
  const double x = Dot(offset, right_), y = Dot(offset, up_), z = Dot(offset, forward_);
  const double across = x * x + z * z, r = std::sqrt(across + (radius_ + y) * (radius_ + y));
  const double height = (across + y * (2.0 * radius_ + y)) / (r + radius_);
  // Lambert's map: the tangent part of the direction, times the root of 2 / (1 + cosine).
  const double onePlusCosine = std::max(1e-24, 1.0 + (radius_ + y) / std::max(r, 1e-12));
  const double stretch = radius_ / std::max(r, 1e-12) * std::sqrt(2.0 / onePlusCosine);
  trVoxelBoxProjector::MapWorldToLocal(localCentre_ + trVector(x * stretch, height, z * stretch), local);
}

void trVoxelPlanetLimbProjector::MapLocalToWorld(const trVector& local, trVector& world) const {
  trVector flat;
  trVoxelBoxProjector::MapLocalToWorld(local, flat);
  flat -= localCentre_;
  const double share = std::min(1.0, (flat.x * flat.x + flat.z * flat.z) / (4.0 * radius_ * radius_));
  const double r = radius_ + flat.y, tangent = r / radius_ * std::sqrt(1.0 - share);
  world = localCentre_ + right_ * (flat.x * tangent) + forward_ * (flat.z * tangent) +
          up_ * (flat.y - 2.0 * share * r);
}

trTransform<double> trVoxelPlanetLimbProjector::GetTransformLocalToWorld() const {
  trTransform<double> turn;
  for (int i = 0; i < 3; ++i) {
    turn.forward.m[i][0] = turn.inverse.m[0][i] = right_[i];
    turn.forward.m[i][1] = turn.inverse.m[1][i] = up_[i];
    turn.forward.m[i][2] = turn.inverse.m[2][i] = forward_[i];
  }
  return trTranslate(localCentre_) * turn * trTranslate(-localCentre_) *
         trVoxelBoxProjector::GetTransformLocalToWorld();
}

trVoxelProjector_TransformedBox::trVoxelProjector_TransformedBox(const trBoundingBox& box,
                                                                 const trMatrix4x4<double>& toWorld,
                                                                 const trMatrix4x4<double>& fromWorld)
    : transform_(toWorld, fromWorld) {
  box_.Init(box);
}

void trVoxelProjector_TransformedBox::MapWorldToLocal(const trVector& world, trVector& local) const {
  box_.MapWorldToLocal(transform_.inverse.Point(world), local);
}

void trVoxelProjector_TransformedBox::MapLocalToWorld(const trVector& local, trVector& world) const {
  trVector inBox;
  box_.MapLocalToWorld(local, inBox);
  world = transform_.Point(inBox);
}

trTransform<double> trVoxelProjector_TransformedBox::GetTransformLocalToWorld() const {
  return transform_ * box_.GetTransformLocalToWorld();
}

trVector trVoxelProjector_TransformedBox::ScalingIfAffine() const {
  const trTransform<double> transform = GetTransformLocalToWorld();
  return {transform.Direction({1, 0, 0}).Length(), transform.Direction({0, 1, 0}).Length(),
          transform.Direction({0, 0, 1}).Length()};
}
