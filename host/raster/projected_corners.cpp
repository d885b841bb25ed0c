// Latitude and longitude of rasters whose coordinates are lengths of a map projection.
#include "host/raster/projected_corners.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace ovhost {
namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;

/// Corners and middles of the edges, counter-clockwise from the south-west; in halves of the raster's size.
constexpr int kRing = 8;
constexpr double kAlong[kRing] = {0, 0.5, 1, 1, 1, 0.5, 0, 0}, kUp[kRing] = {0, 0, 0, 0.5, 1, 1, 1, 0.5};

struct Ring {
  std::array<double, kRing> longitude, latitude;
};

/// Positions of the middles of the outermost points, on the map.
Ring OnTheMap(const RasterInfo& info, const RasterPlan& plan) {
  const double* t = info.transform;
  const double half = static_cast<double>(plan.shrink) * 0.5;
  const double column = static_cast<double>(plan.fileX) + half, row = static_cast<double>(plan.fileY) + half;
  const double wide = static_cast<double>((plan.width - 1) * plan.shrink),
               high = static_cast<double>((plan.height - 1) * plan.shrink);
  Ring ring;
  for (int i = 0; i < kRing; ++i) {
    const double x = column + wide * (plan.westFirst ? kAlong[i] : 1 - kAlong[i]);
    const double y = row + high * (plan.northFirst ? 1 - kUp[i] : kUp[i]);
    ring.longitude[i] = t[0] + x * t[1];
    ring.latitude[i] = t[3] + y * t[5];
  }
  return ring;
}

/// Makes longitudes follow one another without jumps; false where they go round a pole.
bool Unroll(std::array<double, kRing>& longitude) {
  for (int i = 1; i < kRing; ++i)
    longitude[i] = longitude[i - 1] + std::remainder(longitude[i] - longitude[i - 1], 360);
  return std::fabs(longitude[0] - longitude[kRing - 1]) <= 180;
}

/// The mean along an edge of three points (Simpson 1743).
double EdgeMean(double begin, double middle, double end) { return (begin + 4 * middle + end) / 6; }

trLatLongCorners BoxOf(const Ring& ring) {
  const auto& lat = ring.latitude;
  const auto& lon = ring.longitude;
  trLatLongCorners box{EdgeMean(lat[0], lat[1], lat[2]), EdgeMean(lon[0], lon[7], lon[6]),
                       EdgeMean(lat[4], lat[5], lat[6]), EdgeMean(lon[2], lon[3], lon[4])};
  const double turns = 360 * std::floor((box.west + box.east) / 720 + 0.5);
  box.west -= turns;
  box.east -= turns;
  return box;
}

/// How far the box leaves points from their places at most, metres.
double LargestShift(const Ring& ring, const trLatLongCorners& box, double metresPerDegree) {
  double largest = 0;
  for (int i = 0; i < kRing; ++i) {
    const double lat = box.south + (box.north - box.south) * kUp[i];
    const double lon = box.west + (box.east - box.west) * kAlong[i];
    const double east = std::remainder(lon - ring.longitude[i], 360) * std::cos(lat * kDegreesToRadians);
    largest = std::fmax(largest, std::hypot(east, lat - ring.latitude[i]) * metresPerDegree);
  }
  return largest;
}

}  // namespace

void SetProjectedCorners(const RasterInfo& info, RasterPlan& plan) {
  const std::string reference = "its coordinate reference system " + info.referenceName;
  Ring ring = OnTheMap(info, plan);
  const std::string problem = info.toLonLat(ring.longitude.data(), ring.latitude.data(), kRing);
  if (!problem.empty()) {
    plan.warnings.push_back(reference + " gives no latitude and longitude: " + problem);
    return;
  }
  const bool isUnrolled = Unroll(ring.longitude);
  const trLatLongCorners box = BoxOf(ring);
  if (!isUnrolled || !(box.north > box.south) || !(box.east > box.west)) {
    plan.warnings.push_back(reference +
                            " doesn't run along latitude and longitude there: it can't be placed by corners");
    return;
  }
  plan.hasCorners = true;
  plan.corners = box;
  const double shift = LargestShift(ring, box, info.metresPerDegree);
  if (shift <= std::fmax(plan.xScale, plan.yScale)) return;
  char text[200];
  std::snprintf(text, sizeof text,
                "%.3g metres, as the map is turned and bent against latitude and longitude; "
                "a file in degrees would fit",
                shift);
  plan.warnings.push_back("placed by its corners, points lie off their places on a planet by up to " +
                          std::string(text));
}

}  // namespace ovhost
