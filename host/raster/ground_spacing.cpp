// Measures cells of map projections on the ellipsoid.
#include "host/raster/ground_spacing.h"

#include <cmath>

namespace ovhost {
namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;
/// Maps of countries and zones stay within this of true lengths; theirs are kept as they are.
constexpr double kLeastStretch = 0.01;

/// A point of the ellipsoid in metres from its centre, z to the north.
struct Point {
  double x, y, z;
};
Point OnEllipsoid(const RasterInfo& info, double longitude, double latitude) {
  const double east = longitude * kDegreesToRadians, north = latitude * kDegreesToRadians;
  const double eccentricity2 = info.flattening * (2 - info.flattening);
  const double normal = info.metresPerDegree / kDegreesToRadians /
                        std::sqrt(1 - eccentricity2 * std::sin(north) * std::sin(north));
  return {normal * std::cos(north) * std::cos(east), normal * std::cos(north) * std::sin(east),
          normal * (1 - eccentricity2) * std::sin(north)};
}

double Distance(const Point& a, const Point& b) { return std::hypot(b.x - a.x, b.y - a.y, b.z - a.z); }

}  // namespace

void SetGroundSpacing(const RasterInfo& info, RasterPlan& plan) {
  if (!info.toLonLat) return;
  const double* t = info.transform;
  const double column = static_cast<double>(plan.fileX) + 0.5 * static_cast<double>(plan.width * plan.shrink),
               row = static_cast<double>(plan.fileY) + 0.5 * static_cast<double>(plan.height * plan.shrink);
  const double reach = 0.5 * static_cast<double>(plan.shrink);
  const double columns[4] = {column - reach, column + reach, column, column};
  const double rows[4] = {row, row, row - reach, row + reach};
  double x[4], y[4];
  for (int i = 0; i < 4; ++i) {
    x[i] = t[0] + columns[i] * t[1] + rows[i] * t[2];
    y[i] = t[3] + columns[i] * t[4] + rows[i] * t[5];
  }
  if (!info.toLonLat(x, y, 4).empty()) return;  // of which the search for corners tells
  const auto at = [&](int i) { return OnEllipsoid(info, x[i], y[i]); };
  const double across = Distance(at(0), at(1)), up = Distance(at(2), at(3));
  const auto isOff = [](double map, double ground) {
    return std::isfinite(ground) && ground > 0 && std::fabs(map / ground - 1) > kLeastStretch;
  };
  if (!isOff(plan.xScale, across) && !isOff(plan.yScale, up)) return;
  plan.xScale = across;
  plan.yScale = up;
}

}  // namespace ovhost
