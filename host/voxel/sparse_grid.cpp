#include "host/voxel/sparse_grid.h"

#include <algorithm>
#include <cmath>

namespace ovhost {

void SparseGrid::Init(const int first[3], const int count[3], float background) {
  for (int axis = 0; axis < 3; ++axis) {
    first_[axis] = first[axis];
    count_[axis] = std::max(count[axis], 0);
  }
  background_ = background;
  table_.assign(size_t(count_[0]) * count_[1] * count_[2], 0);
  values_.clear();
  uniform_.clear();
}

bool SparseGrid::SetBrick(const int brick[3], const float* values, float value) {
  size_t at = 0;
  for (int axis = 2; axis >= 0; --axis) {
    const std::int64_t i = std::int64_t(brick[axis]) - first_[axis];
    if (i < 0 || i >= count_[axis]) return false;
    at = at * count_[axis] + static_cast<size_t>(i);
  }
  if (values) {
    values_.insert(values_.end(), values, values + kCells);
    table_[at] = static_cast<std::int32_t>(values_.size() / kCells);
  } else {
    uniform_.push_back(value);
    table_[at] = -static_cast<std::int32_t>(uniform_.size());
  }
  return true;
}

float SparseGrid::Value(std::int64_t x, std::int64_t y, std::int64_t z) const {
  const std::int64_t bx = (x >> 3) - first_[0], by = (y >> 3) - first_[1], bz = (z >> 3) - first_[2];
  if (bx < 0 || by < 0 || bz < 0 || bx >= count_[0] || by >= count_[1] || bz >= count_[2]) return background_;
  const std::int32_t entry = table_[(size_t(bz) * count_[1] + by) * count_[0] + bx];
  if (entry == 0) return background_;
  if (entry < 0) return uniform_[static_cast<size_t>(-entry) - 1];
  return values_[size_t(entry - 1) * kCells + ((z & 7) << 6 | (y & 7) << 3 | (x & 7))];
}

float SparseGrid::Lookup(const trVector& at, Interpolation interpolation) const {
  // Far out, and where a point is no number, there is background.
  for (int axis = 0; axis < 3; ++axis)
    if (!(std::fabs(at[axis]) < 1e9)) return background_;
  std::int64_t first[3];
  float weight[3][3];
  int taps = 1;
  for (int axis = 0; axis < 3; ++axis) {
    if (interpolation == Interpolation::kLinear) {
      taps = 2;
      const double low = std::floor(at[axis]);
      first[axis] = static_cast<std::int64_t>(low);
      weight[axis][1] = static_cast<float>(at[axis] - low);
      weight[axis][0] = 1 - weight[axis][1];
      continue;
    }
    const double middle = std::floor(at[axis] + 0.5);
    first[axis] = static_cast<std::int64_t>(middle);
    weight[axis][0] = 1;
    if (interpolation != Interpolation::kQuadratic) continue;
    taps = 3;
    --first[axis];
    const float t = static_cast<float>(at[axis] - middle);
    weight[axis][0] = 0.5f * (0.5f - t) * (0.5f - t);
    weight[axis][1] = 0.75f - t * t;
    weight[axis][2] = 0.5f * (0.5f + t) * (0.5f + t);
  }
  float sum = 0;
  for (int z = 0; z < taps; ++z)
    for (int y = 0; y < taps; ++y)
      for (int x = 0; x < taps; ++x)
        sum += weight[0][x] * weight[1][y] * weight[2][z] * Value(first[0] + x, first[1] + y, first[2] + z);
  return sum;
}

SparseGrid SparseGrid::Halved() const {
  SparseGrid half;
  int first[3], count[3];
  for (int axis = 0; axis < 3; ++axis) {
    first[axis] = first_[axis] >> 1;
    count[axis] = ((first_[axis] + count_[axis] - 1) >> 1) - first[axis] + 1;
  }
  half.Init(first, count, background_);
  int brick[3];
  for (brick[2] = first[2]; brick[2] < first[2] + count[2]; ++brick[2])
    for (brick[1] = first[1]; brick[1] < first[1] + count[1]; ++brick[1])
      for (brick[0] = first[0]; brick[0] < first[0] + count[0]; ++brick[0]) {
        float values[kCells];
        bool isBackground = true;
        for (int i = 0; i < 8 && isBackground; ++i) {
          const std::int64_t at[3] = {brick[0] * 2 + (i & 1) - first_[0],
                                      brick[1] * 2 + (i >> 1 & 1) - first_[1],
                                      brick[2] * 2 + (i >> 2) - first_[2]};
          bool isInside = true;
          for (int axis = 0; axis < 3; ++axis)
            isInside = isInside && at[axis] >= 0 && at[axis] < count_[axis];
          if (isInside) isBackground = table_[(size_t(at[2]) * count_[1] + at[1]) * count_[0] + at[0]] == 0;
        }
        if (isBackground) continue;
        for (int cell = 0; cell < kCells; ++cell) {
          const std::int64_t x = (std::int64_t(brick[0]) * kEdge + (cell & 7)) * 2;
          const std::int64_t y = (std::int64_t(brick[1]) * kEdge + (cell >> 3 & 7)) * 2;
          const std::int64_t z = (std::int64_t(brick[2]) * kEdge + (cell >> 6)) * 2;
          float sum = 0;
          for (int i = 0; i < 8; ++i) sum += Value(x + (i & 1), y + (i >> 1 & 1), z + (i >> 2));
          values[cell] = sum / 8;
        }
        half.SetBrick(brick, values, 0);
      }
  return half;
}

float PlacedGrid::Lookup(const trVector& world, SparseGrid::Interpolation interpolation,
                         double footprint) const {
  if (levels.empty()) return 0;
  trVector at = toWorld.inverse.Point(world);
  // Between two levels where the footprint is.
  const double wanted = footprint > edge ? std::log2(footprint / edge) : 0.0;
  const double level = std::min(wanted, static_cast<double>(levels.size() - 1));
  const auto lower = static_cast<size_t>(level);
  for (size_t i = 0; i < lower; ++i) at = (at - trVector(0.5, 0.5, 0.5)) * 0.5;
  const float fine = levels[lower].Lookup(at, interpolation);
  const float blend = static_cast<float>(level - static_cast<double>(lower));
  if (!(blend > 0) || lower + 1 >= levels.size()) return fine;
  at = (at - trVector(0.5, 0.5, 0.5)) * 0.5;
  return fine + (levels[lower + 1].Lookup(at, interpolation) - fine) * blend;
}

}  // namespace ovhost
