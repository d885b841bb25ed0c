// Building and reading the table.
#include "imagemap/geog_table.h"

#include <algorithm>
#include <cmath>

namespace {

/// Points along a side by which the raster's extent is found, and cells of the coarsest and finest grid.
constexpr int kSamples = 16, kFewestCells = 32, kMostCells = 256;
/// What a grid may be wrong by, half of what is promised: only some points are tried.
constexpr double kLargestError = 0.05;

bool PixelAt(const trGeoRasterInfo& info, trGeoTransformation& fromDegrees, double latitude, double longitude,
             tr2Vector& pixel) {
  double x = longitude, y = latitude;
  if (!fromDegrees.Transform(x, y)) return false;
  const double* const g = info.inverse;
  pixel = {g[0] + x * g[1] + y * g[2], g[3] + x * g[4] + y * g[5]};
  return std::isfinite(pixel.x) && std::isfinite(pixel.y);
}

}  // namespace

GeogTable::GeogTable(const trGeoRasterInfo& info, trGeoTransformation& toDegrees,
                     trGeoTransformation& fromDegrees) {
  if (!info.hasInverse || !FindExtent(info, toDegrees)) return;
  for (int cells = kFewestCells; cells <= kMostCells; cells *= 2)
    if (!Fill(info, fromDegrees, cells))
      break;
    else if (IsExactEnough(info, fromDegrees))
      return;
  pixels_.clear();
}

bool GeogTable::FindExtent(const trGeoRasterInfo& info, trGeoTransformation& toDegrees) {
  double north = -1e9, east = -1e9, first = 0;
  south_ = west_ = 1e9;
  for (int j = 0; j <= kSamples; ++j)
    for (int i = 0; i <= kSamples; ++i) {
      const double column = 1.0 * info.width * i / kSamples, row = 1.0 * info.height * j / kSamples;
      const double* const g = info.transform;
      double x = g[0] + column * g[1] + row * g[2], y = g[3] + column * g[4] + row * g[5];
      if (!toDegrees.Transform(x, y)) return false;
      if (i == 0 && j == 0) first = x;
      x -= 360 * std::floor((x - first) / 360 + 0.5);
      west_ = std::min(west_, x);
      east = std::max(east, x);
      south_ = std::min(south_, y);
      north = std::max(north, y);
    }
  // Round a pole, or over half of the globe, longitude isn't smooth.
  if (!(east - west_ > 0 && east - west_ < 180 && north > south_)) return false;
  const double roomX = (east - west_) / kSamples, roomY = (north - south_) / kSamples;
  west_ -= roomX;
  south_ = std::max(south_ - roomY, -90.0);
  spanLongitude_ = east + roomX - west_;
  spanLatitude_ = std::min(north + roomY, 90.0) - south_;
  return true;
}

bool GeogTable::Fill(const trGeoRasterInfo& info, trGeoTransformation& fromDegrees, int cells) {
  cells_ = cells;
  stepLatitude_ = spanLatitude_ / cells;
  stepLongitude_ = spanLongitude_ / cells;
  pixels_.resize(static_cast<std::size_t>(cells + 1) * static_cast<std::size_t>(cells + 1));
  std::size_t at = 0;
  for (int j = 0; j <= cells; ++j)
    for (int i = 0; i <= cells; ++i)
      if (!PixelAt(info, fromDegrees, south_ + j * stepLatitude_, west_ + i * stepLongitude_, pixels_[at++]))
        return false;
  return true;
}

/// Tried where a bilinear cell is worst: in its middle, and in the middles of two sides.
bool GeogTable::IsExactEnough(const trGeoRasterInfo& info, trGeoTransformation& fromDegrees) const {
  for (int j = 0; j < cells_; ++j)
    for (int i = 0; i < cells_; ++i)
      for (const auto& [u, v] : {std::pair(0.5, 0.5), {0.5, 0.0}, {0.0, 0.5}}) {
        const double latitude = south_ + (j + v) * stepLatitude_,
                     longitude = west_ + (i + u) * stepLongitude_;
        tr2Vector exact, found;
        if (!PixelAt(info, fromDegrees, latitude, longitude, exact) || !Find(latitude, longitude, found))
          return false;
        if (!(std::fabs(exact.x - found.x) < kLargestError && std::fabs(exact.y - found.y) < kLargestError))
          return false;
      }
  return true;
}

bool GeogTable::Find(double latitude, double longitude, tr2Vector& pixel) const {
  const double x = (longitude - west_) / stepLongitude_, y = (latitude - south_) / stepLatitude_;
  if (!(x >= 0 && x <= cells_ && y >= 0 && y <= cells_)) return false;
  const int i = std::min(static_cast<int>(x), cells_ - 1), j = std::min(static_cast<int>(y), cells_ - 1);
  const double u = x - i, v = y - j;
  const tr2Vector* const below = &pixels_[static_cast<std::size_t>(j) * static_cast<std::size_t>(cells_ + 1) +
                                          static_cast<std::size_t>(i)];
  const tr2Vector* const above = below + cells_ + 1;
  pixel = (below[0] * (1 - u) + below[1] * u) * (1 - v) + (above[0] * (1 - u) + above[1] * u) * v;
  return true;
}
