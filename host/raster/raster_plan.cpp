// Works out which pixels of a file are read, and what they mean.
#include "host/raster/raster_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "host/raster/ground_spacing.h"
#include "host/raster/projected_corners.h"

namespace ovhost {
namespace {

using Reference = RasterInfo::Reference;
using Georeference = RasterRequest::Georeference;

constexpr double kDegreesToRadians = 0.017453292519943295;
/// Metres per degree of the sphere that planets have by default.
constexpr double kMetresPerDegree = 6.378e6 * kDegreesToRadians;

std::string Short(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

/// The pixels: `count` points of `shrink` pixels each, from `first` on.
struct Span {
  std::int64_t first = 0, count = 0;
};

/// Points `low` to `high`, counted from the south or west, of an axis of `size` pixels whose order in the
/// file may be the other way. What `shrink` leaves over is left out at the far end.
Span AxisSpan(std::int64_t size, bool isReversed, std::int64_t shrink, bool useWindow, double low,
              double high) {
  std::int64_t begin = 0, end = size;
  if (useWindow) {
    const auto last = static_cast<double>(size - 1);
    const double from = std::floor(std::min(low, high) + 0.5), to = std::floor(std::max(low, high) + 0.5);
    if (!(to >= 0) || !(from <= last)) return {};
    begin = static_cast<std::int64_t>(std::max(from, 0.0));
    end = static_cast<std::int64_t>(std::min(to, last)) + 1;
  }
  const std::int64_t count = (end - begin) / shrink;
  end = begin + count * shrink;
  return {isReversed ? size - end : begin, count};
}

/// Where the plan's first and last points lie along an axis of the transform.
struct Ends {
  double low, high;
};
Ends AxisEnds(double origin, double step, std::int64_t first, std::int64_t count, std::int64_t shrink) {
  const double a = origin + (static_cast<double>(first) + static_cast<double>(shrink) * 0.5) * step;
  const double b = a + static_cast<double>((count - 1) * shrink) * step;
  return {std::min(a, b), std::max(a, b)};
}

bool IsScale(double metres) { return std::isfinite(metres) && metres > 1e-9 && metres < 1e12; }

void PlaceOnMap(const RasterInfo& info, RasterPlan& plan) {
  const double* t = info.transform;
  const auto n = static_cast<double>(plan.shrink);
  plan.isOnMap = true;
  plan.map.stepX = std::fabs(t[1]) * n;
  plan.map.stepY = std::fabs(t[5]) * n;
  plan.map.west = AxisEnds(t[0], t[1], plan.fileX, plan.width, plan.shrink).low;
  plan.map.north = AxisEnds(t[3], t[5], plan.fileY, plan.height, plan.shrink).high;
}

/// Scale and corners as the file tells them; false where it tells none that can be used.
bool PlaceByReference(const RasterInfo& info, const RasterRequest& request, RasterPlan& plan) {
  if (!info.hasTransform || request.georeference == Georeference::kIgnore) return false;
  const double* t = info.transform;
  const bool isDegrees =
      info.reference == Reference::kGeographic || request.georeference == Georeference::kDegrees;
  const bool isTurned = t[2] != 0 || t[4] != 0;
  const double across = std::hypot(t[1], t[4]), up = std::hypot(t[2], t[5]);
  const double n = static_cast<double>(plan.shrink);
  if (isTurned)
    plan.warnings.push_back("its rows don't run from west to east: it can't be placed by its corners");

  if (!isDegrees) {
    const double metres = info.reference == Reference::kMetric ? info.metresPerUnit : 1;
    plan.xScale = across * metres * n;
    plan.yScale = up * metres * n;
    if (info.reference != Reference::kMetric)
      plan.warnings.push_back(
          (info.reference == Reference::kNone
               ? std::string("it has no coordinate reference system")
               : "its coordinate reference system " + info.referenceName + " isn't known") +
          ": its cells of " + Short(across) + " x " + Short(up) +
          " are taken as metres (degrees if georeference is set to 3)");
    SetGroundSpacing(info, plan);
    if (info.toLonLat && !isTurned && request.georeference == Georeference::kAsFile && IsScale(plan.xScale) &&
        IsScale(plan.yScale)) {
      PlaceOnMap(info, plan);
      SetProjectedCorners(info, plan);
    }
    return true;
  }
  const Ends lon = AxisEnds(t[0], t[1], plan.fileX, plan.width, plan.shrink);
  const Ends lat = AxisEnds(t[3], t[5], plan.fileY, plan.height, plan.shrink);
  const double perDegree = info.reference == Reference::kGeographic ? info.metresPerDegree : kMetresPerDegree;
  const double middle = std::clamp((lat.low + lat.high) / 2, -89.9, 89.9);
  plan.xScale = across * perDegree * std::cos(middle * kDegreesToRadians) * n;
  plan.yScale = up * perDegree * n;
  if (isTurned || request.georeference == Georeference::kScale) return true;
  if (lat.low < -90.001 || lat.high > 90.001 || std::fabs(lon.low) > 720 || std::fabs(lon.high) > 720) {
    plan.warnings.push_back("its corners aren't on the globe: latitude " + Short(lat.low) + " to " +
                            Short(lat.high) + ", longitude " + Short(lon.low) + " to " + Short(lon.high));
    return true;
  }
  plan.hasCorners = true;
  plan.corners = {lat.low, lon.low, lat.high, lon.high};
  return true;
}

void Place(const RasterInfo& info, const RasterRequest& request, RasterPlan& plan) {
  bool isPlaced = PlaceByReference(info, request, plan);
  if (request.georeference != Georeference::kIgnore && IsScale(info.xScale) && IsScale(info.yScale)) {
    plan.xScale = info.xScale * static_cast<double>(plan.shrink);
    plan.yScale = info.yScale * static_cast<double>(plan.shrink);
    isPlaced = true;
  }
  if (isPlaced && !(IsScale(plan.xScale) && IsScale(plan.yScale))) {
    plan.warnings.push_back("its cells measure " + Short(plan.xScale) + " x " + Short(plan.yScale) +
                            " metres, which is taken for a mistake");
    plan.hasCorners = plan.isOnMap = false;
    isPlaced = false;
  }
  if (request.setsScale || !isPlaced) {
    plan.isOnMap = false;
    const auto usable = [](double metres) { return IsScale(metres) ? metres : 1; };
    plan.xScale = usable(request.metresPerPixelX) * static_cast<double>(plan.shrink);
    plan.yScale = usable(request.metresPerPixelY) * static_cast<double>(plan.shrink);
  }
}

/// Raster units are such that slopes of the raster are those of the ground, as erosion wants it.
double RasterUnit(const RasterInfo& info, const RasterRequest& request, const RasterPlan& plan) {
  const double natural = std::sqrt(plan.xScale * plan.yScale);
  const bool keepsUnit = info.zScale > 0 && plan.shrink == 1 && !request.setsScale;
  const double unit = keepsUnit ? info.zScale : natural;
  return IsScale(unit) ? unit : 1;
}

void SetHeights(const RasterInfo& info, const RasterRequest& request, RasterPlan& plan) {
  const double told = info.metresPerHeight > 0 ? info.metresPerHeight : 1;
  if (!info.unknownUnit.empty() && !(request.metresPerHeight > 0))
    plan.warnings.push_back("its heights' unit \"" + info.unknownUnit +
                            "\" isn't known: they are taken as metres, unless vertical_units says otherwise");
  const double metres =
      (request.metresPerHeight > 0 ? request.metresPerHeight : told) * request.verticalScale;
  plan.factor = info.scale * metres / plan.zScale;
  plan.addend = (info.offset * metres + request.verticalOffset) / plan.zScale;
  plan.hasMissingValue[0] = info.hasMissingValue;
  plan.missingValue[0] = info.missingValue;
  plan.hasMissingValue[1] = request.hasMissingValue;
  plan.missingValue[1] = request.missingValue;
  plan.fill = request.fillsWithValue ? static_cast<float>(request.fillHeight / plan.zScale)
                                     : std::numeric_limits<float>::quiet_NaN();
}

}  // namespace

std::string MemoryProblem(const RasterPlan& plan, std::uint64_t freeBytes) {
  constexpr double kGigabyte = 1e9;
  // Filling what is missing takes a third more.
  const double bytes = static_cast<double>(plan.width) * static_cast<double>(plan.height) * sizeof(float) *
                       (std::isnan(plan.fill) ? 4.0 / 3 : 1.0);
  if (bytes <= static_cast<double>(freeBytes)) return {};
  return "its " + std::to_string(plan.width) + " x " + std::to_string(plan.height) + " points take " +
         Short(bytes / kGigabyte) + " GB, and " + Short(static_cast<double>(freeBytes) / kGigabyte) +
         " GB are free: reading a part of it, or down-sampling, takes less memory";
}

std::string PlanRaster(const RasterInfo& info, const RasterRequest& request, RasterPlan& plan) {
  plan = {};
  plan.shrink = std::max<std::int64_t>(request.shrink, 1);
  plan.northFirst = !info.hasTransform || info.transform[5] <= 0;
  plan.westFirst = !info.hasTransform || info.transform[1] >= 0;
  const std::string size = std::to_string(info.width) + " x " + std::to_string(info.height) + " points";
  const Span x = AxisSpan(info.width, !plan.westFirst, plan.shrink, request.useWindow, request.windowX0,
                          request.windowX1);
  const Span y = AxisSpan(info.height, plan.northFirst, plan.shrink, request.useWindow, request.windowY0,
                          request.windowY1);
  if (x.count < 1 || y.count < 1)
    return plan.shrink > 1 ? "down-sampling by " + std::to_string(plan.shrink) + " leaves nothing of " + size
                           : "the part to be read lies outside its " + size;
  plan.fileX = x.first;
  plan.fileY = y.first;
  plan.width = x.count;
  plan.height = y.count;
  Place(info, request, plan);
  plan.zScale = RasterUnit(info, request, plan);
  SetHeights(info, request, plan);
  if (!std::isfinite(plan.factor) || !std::isfinite(plan.addend)) return "its heights have no finite scale";
  return {};
}

}  // namespace ovhost
