// Rays against shells and spheres.
#include "atmosphere/cloud_span.h"

#include <algorithm>
#include <cmath>

namespace {

/// What the gap is shorter than the hollow, metres, so that steps on its rim stay in the cloud.
constexpr double kGapMargin = 1e-6;

struct Stretch {
  double begin, end;
};

/// Where a line meets a ball, in distances from its origin; false if it misses or grazes. By the distance of
/// the closest approach, which keeps its digits at a planet's size.
bool MeetBall(const trVector& fromCentre, const trVector& direction, double radius, Stretch& met) {
  const double closest = -Dot(fromCentre, direction);
  const double height = (fromCentre + direction * closest).Length();
  const double square = (radius - height) * (radius + height);
  if (!(square > 0.0)) return false;
  const double half = std::sqrt(square);
  met = {closest - half, closest + half};
  return true;
}

/// Cuts `stretch` to the ball; false where nothing stays.
bool ClipToBall(const trVector& fromCentre, const trVector& direction, double radius, Stretch& stretch) {
  Stretch met;
  if (!MeetBall(fromCentre, direction, radius, met)) return false;
  stretch.begin = std::max(stretch.begin, met.begin);
  stretch.end = std::min(stretch.end, met.end);
  return stretch.end > stretch.begin;
}

}  // namespace

bool FindCloudSpan(const CloudShell& shell, const trVector& from, const trVector& to, CloudSpan& span) {
  const trVector way = to - from;
  const double distance = way.Length();
  if (!(distance > 0.0) || !std::isfinite(distance)) return false;
  span.direction = way * (1.0 / distance);
  span.gap = 0;

  Stretch stretch{0, distance};
  if (shell.isLocal && (!(shell.localRadius > 0.0) ||
                        !ClipToBall(from - shell.localCentre, span.direction, shell.localRadius, stretch)))
    return false;
  const trVector fromCentre = from - shell.centre;
  if (!ClipToBall(fromCentre, span.direction, shell.topRadius, stretch)) return false;

  // The hollow: crossed on the way, or left behind.
  Stretch hollow;
  if (MeetBall(fromCentre, span.direction, shell.baseRadius, hollow)) {
    if (hollow.begin > stretch.begin && hollow.begin < stretch.end) {
      span.gap = std::max(0.0, std::min(stretch.end, hollow.end) - hollow.begin - kGapMargin);
    } else if (hollow.begin <= stretch.begin && hollow.end > stretch.begin) {
      stretch.begin = hollow.end;
    }
  }
  span.entry = from + span.direction * stretch.begin;
  span.entryDistance = stretch.begin;
  span.length = stretch.end - stretch.begin;
  return span.length > 0.0;
}
