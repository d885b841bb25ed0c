// Every place of a coarse lattice is looked from in every direction, and what is seen gets marks.
#include "host/session/viewpoint.h"

#include <algorithm>
#include <cmath>

#include "host/base/parallel.h"

namespace ovhost {
namespace {

constexpr double kDegree = 0.017453292519943278;
/// Height of the eye over the ground, metres: of somebody on a knoll.
constexpr double kEye = 6;
constexpr int kNumHeadings = 24, kNumRays = 9;
/// Half of what a lens of 50 degrees sees.
constexpr double kHalfView = 25;
constexpr double kNearest = 150, kFarthest = 16000, kFactor = 1.12;

/// What lies along one direction.
struct Ray {
  double skyline = -90;        ///< degrees
  double skylineDistance = 0;  ///< metres
  double nearest = -90;        ///< the highest that stands within a kilometre
  double seen = 0;             ///< share of the steps whose ground is seen
  double water = 0;            ///< share of those that are water
};

Ray Look(const HeightSurvey& survey, double x, double z, double eye, double heading, double radius) {
  const double dx = std::sin(heading * kDegree), dz = std::cos(heading * kDegree);
  Ray ray;
  int steps = 0, seen = 0, wet = 0;
  for (double d = kNearest; d < kFarthest; d *= kFactor, ++steps) {
    const double height = survey.At(x + dx * d, z + dz * d);
    const double angle = std::atan2(height - eye - d * d / (2 * radius), d) / kDegree;
    if (d < 1000) ray.nearest = std::max(ray.nearest, angle);
    if (angle <= ray.skyline) continue;
    ++seen;
    wet += survey.water && height <= *survey.water;
    ray.skyline = angle;
    ray.skylineDistance = d;
  }
  ray.seen = static_cast<double>(seen) / steps;
  ray.water = seen > 0 ? static_cast<double>(wet) / seen : 0;
  return ray;
}

/// Marks of a view, and the mean skyline in it.
double Marks(const Ray* rays, double& skyline) {
  double sum = 0, squares = 0, nearest = -90, distance = 0, seen = 0, water = 0;
  for (int i = 0; i < kNumRays; ++i) {
    sum += rays[i].skyline;
    squares += rays[i].skyline * rays[i].skyline;
    nearest = std::max(nearest, rays[i].nearest);
    distance += rays[i].skylineDistance / kNumRays;
    seen += rays[i].seen / kNumRays;
    water += rays[i].water / kNumRays;
  }
  skyline = sum / kNumRays;
  const double variation = std::sqrt(std::max(squares / kNumRays - skyline * skyline, 0.0));
  double marks = 0;
  // Peaks are tall from six to nine degrees; beyond fifteen one stands before a wall.
  marks -= std::abs(skyline - 7) / 3;
  marks += std::min(variation, 3.0) * 0.6;
  marks -= std::max(nearest + 1.5, 0.0) * 0.5;
  marks += std::min(distance, 9000.0) / 6000;
  marks += 2.5 * seen;
  marks += 3 * std::min(water, 0.5);
  return marks;
}

}  // namespace

double HeightSurvey::At(double x, double z) const {
  const double u = std::clamp((x + Reach()) / step, 0.0, side - 1.001);
  const double v = std::clamp((z + Reach()) / step, 0.0, side - 1.001);
  const auto i = static_cast<size_t>(u), j = static_cast<size_t>(v);
  const double a = u - static_cast<double>(i), b = v - static_cast<double>(j);
  const double* const row = &heights[j * static_cast<size_t>(side) + i];
  const double* const next = row + side;
  const double ground = (row[0] * (1 - a) + row[1] * a) * (1 - b) + (next[0] * (1 - a) + next[1] * a) * b;
  return water ? std::max(ground, *water) : ground;
}

std::vector<Viewpoint> FindViewpoints(const HeightSurvey& survey, double radius, size_t count) {
  struct Place {
    Viewpoint view;
    double marks = -1e30;
  };
  // Places near the middle: from those at the border half of the land lies outside.
  constexpr int kPlaces = 48;
  const double spacing = survey.Reach() / kPlaces;
  std::vector<Place> places(static_cast<size_t>(kPlaces) * kPlaces);
  ParallelFor(places.size(), [&](size_t index) {
    Place& best = places[index];
    const double x = (static_cast<double>(index % kPlaces) + 0.5 - kPlaces / 2) * spacing;
    const double z = (static_cast<double>(index / kPlaces) + 0.5 - kPlaces / 2) * spacing;
    const double ground = survey.At(x, z);
    if (survey.water && ground <= *survey.water + 3) return;
    Ray rays[kNumHeadings * 3];
    constexpr double kBetween = 360.0 / (kNumHeadings * 3);
    for (int i = 0; i < kNumHeadings * 3; ++i)
      rays[i] = Look(survey, x, z, ground + kEye, i * kBetween, radius);
    for (int heading = 0; heading < kNumHeadings * 3; heading += 3) {
      Ray view[kNumRays];
      for (int i = 0; i < kNumRays; ++i) {
        const int offset =
            static_cast<int>(std::lround((2.0 * i / (kNumRays - 1) - 1) * kHalfView / kBetween));
        view[i] = rays[(heading + offset + kNumHeadings * 3) % (kNumHeadings * 3)];
      }
      double skyline;
      const double marks = Marks(view, skyline);
      if (marks > best.marks) best = {{x, z, heading * kBetween, skyline}, marks};
    }
  });
  count = std::min(count, places.size());
  std::partial_sort(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(count), places.end(),
                    [](const Place& a, const Place& b) { return a.marks > b.marks; });
  std::vector<Viewpoint> views;
  for (size_t i = 0; i < count; ++i) views.push_back(places[i].view);
  return views;
}

double LitShare(const HeightSurvey& survey, double radius, const Viewpoint& view, double sunHeading,
                double sunElevation) {
  const double sunX = std::sin(sunHeading * kDegree), sunZ = std::cos(sunHeading * kDegree);
  const double rise = std::tan(sunElevation * kDegree);
  const auto isLit = [&](double x, double z) {
    const double height = survey.At(x, z);
    for (double d = survey.step; d < kFarthest; d *= kFactor)
      if (survey.At(x + sunX * d, z + sunZ * d) > height + rise * d) return false;
    return true;
  };
  const double eye = survey.At(view.x, view.z) + kEye;
  int seen = 0, lit = 0;
  for (int i = 0; i < kNumRays; ++i) {
    const double heading = (view.heading + (2.0 * i / (kNumRays - 1) - 1) * kHalfView) * kDegree;
    const double dx = std::sin(heading), dz = std::cos(heading);
    double skyline = -90;
    for (double d = kNearest; d < kFarthest; d *= kFactor) {
      const double x = view.x + dx * d, z = view.z + dz * d;
      const double angle = std::atan2(survey.At(x, z) - eye - d * d / (2 * radius), d) / kDegree;
      if (angle <= skyline) continue;
      skyline = angle;
      ++seen;
      lit += isLit(x, z);
    }
  }
  return seen > 0 ? static_cast<double>(lit) / seen : 0;
}

}  // namespace ovhost
