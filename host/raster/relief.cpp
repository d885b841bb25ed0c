// Shaded relief, slopes and figures of rasters of heights.
#include "host/raster/relief.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/raster/grey_png.h"
#include "host/raster/height_median.h"
#include "host/raster/workers.h"

namespace ovhost {
namespace {

constexpr double kRadiansToDegrees = 57.29577951308232;

/// A height, continued in a straight line beyond the border, so that slopes there are those of the ground
/// within.
double HeightAt(const HeightGrid& grid, std::int64_t x, std::int64_t y) {
  const auto inside = [](std::int64_t i, std::int64_t size) {
    return std::clamp<std::int64_t>(i, 0, size - 1);
  };
  const std::int64_t ix = inside(x, grid.width), iy = inside(y, grid.height);
  const double value = grid.Row(iy)[ix];
  if (ix == x && iy == y) return value;
  return 2 * value - grid.Row(inside(2 * iy - y, grid.height))[inside(2 * ix - x, grid.width)];
}

/// The gradients of a row of points, from rows that lie side by side.
class RowGradients {
 public:
  RowGradients(const HeightGrid& grid, std::int64_t y) : grid_(grid), y_(y) {
    const double z = grid.zScale / 8;
    east_ = z / grid.xScale;
    north_ = z / grid.yScale;
  }
  GroundGradient At(std::int64_t x) const {
    if (x < 1 || y_ < 1 || x + 1 >= grid_.width || y_ + 1 >= grid_.height) return GradientAt(grid_, x, y_);
    const float *s = grid_.Row(y_ - 1) + x, *m = grid_.Row(y_) + x, *n = grid_.Row(y_ + 1) + x;
    return {((static_cast<double>(n[1]) - n[-1]) + 2 * (static_cast<double>(m[1]) - m[-1]) +
             (static_cast<double>(s[1]) - s[-1])) *
                east_,
            ((static_cast<double>(n[-1]) - s[-1]) + 2 * (static_cast<double>(n[0]) - s[0]) +
             (static_cast<double>(n[1]) - s[1])) *
                north_};
  }

 private:
  const HeightGrid& grid_;
  std::int64_t y_;
  double east_, north_;
};

double SlopeDegrees(const GroundGradient& g) {
  return std::atan(std::hypot(g.east, g.north)) * kRadiansToDegrees;
}

/// Light from the west, north-west, north and south-west, 45 degrees high, each the stronger the more the
/// ground is turned sideways to it; mixed with plain light from the north-west, which keeps the sense of up
/// and down.
double Shade(const GroundGradient& g, double exaggeration) {
  constexpr double kSin45 = 0.7071067811865476;
  struct Light {
    double east, north;
  };
  static constexpr Light kLights[] = {{-kSin45, -kSin45}, {-1, 0}, {-kSin45, kSin45}, {0, 1}};
  const double p = g.east * exaggeration, q = g.north * exaggeration, steep = p * p + q * q;
  const double normalUp = 1 / std::sqrt(1 + steep);
  const auto lambert = [&](const Light& from) {
    return std::max((kSin45 - kSin45 * (p * from.east + q * from.north)) * normalUp, 0.0);
  };
  double side = 0, weights = 0;
  for (const Light& light : kLights) {
    const double along = p * light.east + q * light.north;
    const double weight = steep > 0 ? 1 - along * along / steep : 0.5;
    side += weight * lambert(light);
    weights += weight;
  }
  return 0.5 * side / std::max(weights, 1e-9) + 0.5 * lambert(kLights[2]);
}

GreyPng PictureOf(const HeightGrid& grid) {
  GreyPng picture;
  picture.width = grid.width;
  picture.height = grid.height;
  picture.texts = {{"Software", "ov " OV_VERSION}};
  return picture;
}

std::uint16_t Grey(double value) {
  return static_cast<std::uint16_t>(std::isfinite(value) ? std::clamp(value, 0.0, 1.0) * 255 + 0.5 : 0);
}

}  // namespace

GroundGradient GradientAt(const HeightGrid& grid, std::int64_t x, std::int64_t y) {
  const auto h = [&](std::int64_t i, std::int64_t j) { return HeightAt(grid, x + i, y + j); };
  const double east = h(1, 1) - h(-1, 1) + 2 * (h(1, 0) - h(-1, 0)) + h(1, -1) - h(-1, -1);
  const double north = h(-1, 1) - h(-1, -1) + 2 * (h(0, 1) - h(0, -1)) + h(1, 1) - h(1, -1);
  return {east * grid.zScale / (8 * grid.xScale), north * grid.zScale / (8 * grid.yScale)};
}

double ReliefExaggeration(const HeightGrid& grid) {
  // Where the steepest twentieth of the ground begins, on a sample of it.
  constexpr double kGentle = 0.25, kLively = 0.5;
  std::vector<double> slopes;
  const std::int64_t step = std::max<std::int64_t>(std::max(grid.width, grid.height) / 512, 1);
  for (std::int64_t y = 0; y < grid.height; y += step)
    for (std::int64_t x = 0; x < grid.width; x += step) {
      const GroundGradient g = GradientAt(grid, x, y);
      if (const double slope = std::hypot(g.east, g.north); std::isfinite(slope)) slopes.push_back(slope);
    }
  if (slopes.empty()) return 1;
  const auto steep = slopes.begin() + static_cast<std::ptrdiff_t>(slopes.size() * 19 / 20);
  std::nth_element(slopes.begin(), steep, slopes.end());
  return *steep > 0 && *steep < kGentle ? kLively / *steep : 1;
}

std::string WriteHillshade(const std::string& path, const HeightGrid& grid, double exaggeration, int threads,
                           const WorkProgress& progress) {
  GreyPng picture = PictureOf(grid);
  picture.row = [&](std::int64_t y, std::uint16_t* row) {
    const RowGradients gradients(grid, grid.height - 1 - y);
    for (std::int64_t x = 0; x < grid.width; ++x) row[x] = Grey(Shade(gradients.At(x), exaggeration));
  };
  return WriteGreyPng(path, picture, threads, progress);
}

std::string WriteSlope(const std::string& path, const HeightGrid& grid, int threads,
                       const WorkProgress& progress) {
  GreyPng picture = PictureOf(grid);
  picture.row = [&](std::int64_t y, std::uint16_t* row) {
    const RowGradients gradients(grid, grid.height - 1 - y);
    for (std::int64_t x = 0; x < grid.width; ++x) row[x] = Grey(1 - SlopeDegrees(gradients.At(x)) / 90);
  };
  return WriteGreyPng(path, picture, threads, progress);
}

HeightStatistics MeasureHeights(const HeightGrid& grid, int threads) {
  // Each row by itself, and the rows added up in order: the same figures for any number of threads.
  struct Row {
    std::int64_t finite = 0;
    double sum = 0, squares = 0, slopes = 0, steepest = 0;
  };
  const double middle = 0.5 * (static_cast<double>(grid.lowest) + grid.highest);
  constexpr std::int64_t kBand = 64;
  const std::int64_t bands = (grid.height + kBand - 1) / kBand;
  std::vector<Row> parts(static_cast<std::size_t>(bands));
  RunPieces(threads, bands, {}, [&](int, std::int64_t band) {
    Row& part = parts[static_cast<std::size_t>(band)];
    for (std::int64_t y = band * kBand; y < std::min((band + 1) * kBand, grid.height); ++y) {
      const RowGradients gradients(grid, y);
      for (std::int64_t x = 0; x < grid.width; ++x) {
        const double value = grid.Row(y)[x];
        if (!std::isfinite(value)) continue;
        ++part.finite;
        part.sum += value - middle;
        part.squares += (value - middle) * (value - middle);
        const double slope = SlopeDegrees(gradients.At(x));
        if (!std::isfinite(slope)) continue;
        part.slopes += slope;
        part.steepest = std::max(part.steepest, slope);
      }
    }
    return true;
  });

  // The sums, and what they come to.
  HeightStatistics result;
  Row all;
  for (const Row& part : parts) {
    all.finite += part.finite;
    all.sum += part.sum;
    all.squares += part.squares;
    all.slopes += part.slopes;
    all.steepest = std::max(all.steepest, part.steepest);
  }
  result.missing = grid.width * grid.height - all.finite;
  if (all.finite == 0) return result;
  const auto count = static_cast<double>(all.finite);
  const double mean = all.sum / count;
  result.lowest = grid.lowest * grid.zScale;
  result.highest = grid.highest * grid.zScale;
  result.mean = (middle + mean) * grid.zScale;
  result.deviation = std::sqrt(std::max(all.squares / count - mean * mean, 0.0)) * grid.zScale;
  result.meanSlope = all.slopes / count;
  result.steepest = all.steepest;
  result.median = MedianHeight(grid, threads) * grid.zScale;
  return result;
}

}  // namespace ovhost
