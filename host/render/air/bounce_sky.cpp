// The table of sky light for bounces.
#include "host/render/air/bounce_sky.h"

#include <algorithm>

#include "host/base/parallel.h"
#include "host/base/sampler.h"
#include "host/base/tangents.h"

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979;
/// Rays averaged for one entry.
constexpr int kDraws = 8;
/// Past everything, metres.
constexpr double kFar = 1e9;

double SafeSqrt(double x) { return std::sqrt(std::fmax(x, 0)); }

/// A place in a table of n entries: an index and the weight of the next.
struct Place {
  int index;
  float weight;

  Place(double x, int n) {
    const double at = x > 0 ? std::fmin(x, 1.0) * (n - 1) : 0.0;
    index = std::min(static_cast<int>(at), n - 2);
    weight = static_cast<float>(at - index);
  }
};

}  // namespace

void BounceSky::Build(const std::vector<trAtmosShader*>& volumes, trRenderServices& services,
                      const trVector& centre, const trVector& sunDirection, const trVector& eye,
                      const std::vector<trVector>& places) {
  table_.clear();
  centre_ = centre;
  sun_ = sunDirection;
  bool isFirst = true;
  for (const trVector& place : places) {
    if ((place - eye).LengthSquared() > kReach * kReach) continue;
    const trVector fromCentre = place - centre;
    const double r = fromCentre.Length(), sunCosine = Dot(fromCentre, sun_) / std::fmax(r, 1e-6);
    lowest_ = isFirst ? r : std::fmin(lowest_, r);
    highest_ = isFirst ? r : std::fmax(highest_, r);
    leastSun_ = isFirst ? sunCosine : std::fmin(leastSun_, sunCosine);
    greatestSun_ = isFirst ? sunCosine : std::fmax(greatestSun_, sunCosine);
    isFirst = false;
  }
  if (isFirst) return;
  highest_ = std::fmax(highest_, lowest_ + 1);
  greatestSun_ = std::fmin(std::fmax(greatestSun_, leastSun_ + 1e-6), 1.0);

  table_.resize(Index(kHeights, 0, 0, 0));
  const trVector side = Normalised(std::fabs(sun_.y) < 0.9 ? Cross(sun_, {0, 1, 0}) : Cross(sun_, {1, 0, 0}));
  ParallelFor(static_cast<size_t>(kHeights) * kSunAngles * kElevations, [&](size_t index) {
    const int row = static_cast<int>(index);
    const int elevation = row % kElevations, sunAngle = row / kElevations % kSunAngles,
              height = row / kElevations / kSunAngles;
    const double cosine = leastSun_ + (greatestSun_ - leastSun_) * sunAngle / (kSunAngles - 1);
    const trVector up = sun_ * cosine + side * SafeSqrt(1 - cosine * cosine);
    const trVector origin = centre_ + up * (lowest_ + (highest_ - lowest_) * height / (kHeights - 1));
    trShadingInterface si;
    si.SetThread(ThreadSlot());
    trRenderState state(services, si);
    trAtomicIntegrator integrator;
    for (int turn = 0; turn < kTurns; ++turn) {
      si.Random() = {MixBits64(static_cast<std::uint64_t>(row) * kTurns + turn)};
      table_[Index(height, sunAngle, elevation, turn)] =
          Average(volumes, state, integrator, origin, up, elevation, turn);
    }
    integrator.FreeRayData();
  });
}

trFCol BounceSky::Average(const std::vector<trAtmosShader*>& volumes, trRenderState& state,
                          trAtomicIntegrator& integrator, const trVector& origin, const trVector& up,
                          int elevation, int turn) const {
  // Azimuth 0 is the sun's. Both coordinates are quadratic, finest at the horizon and under the sun.
  const trVector across = sun_ - up * Dot(sun_, up);
  trVector towardsSun, front;
  MakeTangents(up, towardsSun, front);
  if (across.Length() > 1e-6) towardsSun = Normalised(across);
  const trVector third = Cross(up, towardsSun);
  trFCol sum;
  for (int draw = 0; draw < kDraws; ++draw) {
    const double x = std::clamp((elevation + state.Random() - 0.5) / (kElevations - 1), 0.0, 1.0);
    const double y = std::clamp((turn + state.Random() - 0.5) / (kTurns - 1), 0.0, 1.0);
    const double sine = kLowest + (1 - kLowest) * x * x, phi = kPi * y * y;
    const double level = SafeSqrt(1 - sine * sine);
    trRenderState::Ray& ray = state.CurrentRay();
    ray = trRenderState::Ray();
    ray.origin = origin;
    ray.end = origin + (up * sine + (towardsSun * std::cos(phi) + third * std::sin(phi)) * level) * kFar;
    ray.depth = 2;
    ray.quality = 0;
    ray.tracesShadows = false;
    integrator.Begin(state);
    sum += integrator.Integrate(state, volumes).Colour();
  }
  return sum * (1.0f / kDraws);
}

bool BounceSky::Lookup(const trVector& point, const trVector& direction, trFCol& radiance) const {
  if (table_.empty()) return false;
  const trVector fromCentre = point - centre_;
  const double r = fromCentre.Length();
  // A step beyond the places that the table was made for does no harm.
  const double slack = 0.25 * (highest_ - lowest_) + 10;
  if (!(r > lowest_ - slack && r < highest_ + slack)) return false;
  const trVector up = fromCentre * (1 / r);
  const double sunCosine = Dot(up, sun_), sine = Dot(direction, up);
  const double sunSlack = 0.25 * (greatestSun_ - leastSun_) + 1e-6;
  if (sine < kLowest || sunCosine < leastSun_ - sunSlack || sunCosine > greatestSun_ + sunSlack) return false;

  const double level = SafeSqrt((1 - sine * sine) * (1 - sunCosine * sunCosine));
  const double cosPhi = level > 1e-9 ? (Dot(direction, sun_) - sine * sunCosine) / level : 1.0;
  const double phi = std::acos(std::clamp(cosPhi, -1.0, 1.0));
  const Place h((r - lowest_) / (highest_ - lowest_), kHeights);
  const Place s((sunCosine - leastSun_) / (greatestSun_ - leastSun_), kSunAngles);
  const Place e(SafeSqrt((sine - kLowest) / (1 - kLowest)), kElevations);
  const Place t(std::sqrt(phi / kPi), kTurns);
  radiance = trFCol();
  for (int corner = 0; corner < 8; ++corner) {
    const int i = corner & 1, j = corner >> 1 & 1, k = corner >> 2;
    const float weight =
        (i ? h.weight : 1 - h.weight) * (j ? s.weight : 1 - s.weight) * (k ? e.weight : 1 - e.weight);
    const trFCol* entry = &table_[Index(h.index + i, s.index + j, e.index + k, t.index)];
    radiance += (entry[0] + (entry[1] - entry[0]) * t.weight) * weight;
  }
  return true;
}

}  // namespace ovhost
