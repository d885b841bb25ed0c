// Fills holes by averaging them into a pyramid and relaxing them on the way back (Gortler et al. 1996, "The
// lumigraph", pull-push; Gauss-Seidel sweeps bring each level near to the solution of Laplace's equation).
#include "host/raster/fill_missing.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace ovhost {
namespace {

constexpr int kSweeps = 6;
constexpr float kMissing = std::numeric_limits<float>::quiet_NaN();

struct Level {
  float* values;
  std::int64_t width, height;
  float At(std::int64_t x, std::int64_t y) const { return values[y * width + x]; }
};

/// Runs of missing points of a row.
struct Run {
  std::int64_t y, begin, end;
};

std::vector<Run> FindMissing(const Level& level, std::int64_t& count) {
  std::vector<Run> runs;
  for (std::int64_t y = 0; y < level.height; ++y) {
    const float* row = level.values + y * level.width;
    for (std::int64_t x = 0; x < level.width; ++x) {
      if (!std::isnan(row[x])) continue;
      const std::int64_t begin = x;
      while (x < level.width && std::isnan(row[x])) ++x;
      runs.push_back({y, begin, x});
      count += x - begin;
    }
  }
  return runs;
}

/// Half the size; a point is the mean of those of its four that aren't missing.
std::vector<float> Shrink(const Level& level, std::int64_t width, std::int64_t height) {
  std::vector<float> half(static_cast<std::size_t>(width * height));
  for (std::int64_t y = 0; y < height; ++y)
    for (std::int64_t x = 0; x < width; ++x) {
      float sum = 0;
      int count = 0;
      for (std::int64_t j = 2 * y; j < std::min(2 * y + 2, level.height); ++j)
        for (std::int64_t i = 2 * x; i < std::min(2 * x + 2, level.width); ++i)
          if (const float v = level.At(i, j); !std::isnan(v)) sum += v, ++count;
      half[static_cast<std::size_t>(y * width + x)] = count ? sum / static_cast<float>(count) : kMissing;
    }
  return half;
}

/// Bilinear between the half-size points, whose centres lie between four of the level's.
float Enlarged(const Level& half, std::int64_t x, std::int64_t y) {
  const std::int64_t x0 = (x - 1) >> 1, y0 = (y - 1) >> 1;
  const float u = x & 1 ? 0.25f : 0.75f, v = y & 1 ? 0.25f : 0.75f;
  const auto at = [&half](std::int64_t i, std::int64_t j) {
    return half.At(std::clamp<std::int64_t>(i, 0, half.width - 1),
                   std::clamp<std::int64_t>(j, 0, half.height - 1));
  };
  const float south = at(x0, y0) * (1 - u) + at(x0 + 1, y0) * u;
  const float north = at(x0, y0 + 1) * (1 - u) + at(x0 + 1, y0 + 1) * u;
  return south * (1 - v) + north * v;
}

float MeanOfNeighbours(const Level& level, std::int64_t x, std::int64_t y) {
  float sum = 0;
  int count = 0;
  const auto add = [&](std::int64_t i, std::int64_t j) { sum += level.At(i, j), ++count; };
  if (x > 0) add(x - 1, y);
  if (x + 1 < level.width) add(x + 1, y);
  if (y > 0) add(x, y - 1);
  if (y + 1 < level.height) add(x, y + 1);
  return count ? sum / static_cast<float>(count) : level.At(x, y);
}

std::int64_t Fill(const Level& level) {
  std::int64_t missing = 0;
  const std::vector<Run> runs = FindMissing(level, missing);
  if (missing == 0) return 0;
  if (missing == level.width * level.height) {
    std::fill_n(level.values, missing, 0.0f);
    return missing;
  }
  const std::int64_t width = (level.width + 1) / 2, height = (level.height + 1) / 2;
  std::vector<float> values = Shrink(level, width, height);
  const Level half{values.data(), width, height};
  Fill(half);
  for (const Run& run : runs)
    for (std::int64_t x = run.begin; x < run.end; ++x)
      level.values[run.y * level.width + x] = Enlarged(half, x, run.y);
  for (int sweep = 0; sweep < kSweeps; ++sweep)
    for (const Run& run : runs)
      for (std::int64_t x = run.begin; x < run.end; ++x)
        level.values[run.y * level.width + x] = MeanOfNeighbours(level, x, run.y);
  return missing;
}

}  // namespace

std::int64_t FillMissing(float* values, std::int64_t width, std::int64_t height) {
  return Fill({values, width, height});
}

}  // namespace ovhost
