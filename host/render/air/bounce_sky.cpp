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
struct Between {
  int index = 0;
  float weight = 0;

  Between() = default;
  Between(double x, int n) {
    const double at = x > 0 ? std::fmin(x, 1.0) * (n - 1) : 0.0;
    index = std::min(static_cast<int>(at), n - 2);
    weight = static_cast<float>(at - index);
  }
};

}  // namespace

/// The corners of an entry's cell, and their weights.
struct BounceSky::Place {
  Between height, sunAngle, elevation, turn;

  /// Of corner number 0 to 7 of the first three.
  float Weight(int corner) const {
    const float h = height.weight, s = sunAngle.weight, e = elevation.weight;
    return (corner & 1 ? h : 1 - h) * (corner >> 1 & 1 ? s : 1 - s) * (corner >> 2 ? e : 1 - e);
  }
};

std::vector<double> BounceSky::Build(const std::vector<trAtmosShader*>& volumes, trRenderServices& services,
                                     const trVector& centre, const trVector& sunDirection,
                                     const trVector& eye, const std::vector<trVector>& places,
                                     bool isByPart) {
  table_.clear();
  parts_.clear();
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
  std::vector<double> shares(volumes.size());
  if (isFirst) return shares;
  highest_ = std::fmax(highest_, lowest_ + 1);
  greatestSun_ = std::fmin(std::fmax(greatestSun_, leastSun_ + 1e-6), 1.0);

  table_.resize(Index(kHeights, 0, 0, 0));
  if (isByPart) parts_.resize(table_.size());
  constexpr size_t kRows = static_cast<size_t>(kHeights) * kSunAngles * kElevations;
  std::vector<double> sharesOfRows(kRows * volumes.size());
  const trVector side = Normalised(std::fabs(sun_.y) < 0.9 ? Cross(sun_, {0, 1, 0}) : Cross(sun_, {1, 0, 0}));
  ParallelFor(kRows, [&](size_t index) {
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
      const size_t entry = Index(height, sunAngle, elevation, turn);
      table_[entry] = Average(volumes, state, integrator, origin, up, elevation, turn,
                              isByPart ? &parts_[entry] : nullptr, &sharesOfRows[index * volumes.size()]);
    }
    integrator.FreeRayData();
  });
  double sum = 0;
  for (size_t i = 0; i < sharesOfRows.size(); ++i) {
    shares[i % shares.size()] += sharesOfRows[i];
    sum += sharesOfRows[i];
  }
  for (double& share : shares) share = sum > 0 ? share / sum : 0;
  return shares;
}

trFCol BounceSky::Average(const std::vector<trAtmosShader*>& volumes, trRenderState& state,
                          trAtomicIntegrator& integrator, const trVector& origin, const trVector& up,
                          int elevation, int turn, Light* parts, double* shares) const {
  // Azimuth 0 is the sun's. Both coordinates are quadratic, finest at the horizon and under the sun.
  const trVector across = sun_ - up * Dot(sun_, up);
  trVector towardsSun, front;
  MakeTangents(up, towardsSun, front);
  if (across.Length() > 1e-6) towardsSun = Normalised(across);
  const trVector third = Cross(up, towardsSun);
  trFCol sum;
  double weights = 0, distances = 0;
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
    ray.tracesShadows = ray.modulatesLight = false;
    integrator.Begin(state);
    const trAtomicIntegrator::Result air = integrator.Integrate(state, volumes);
    sum += air.Colour();
    if (!parts) continue;
    parts->direct += air.direct * (1.0f / kDraws);
    parts->enviro += air.enviro * (1.0f / kDraws);
    for (int i = 0; i < integrator.NumSamples(); ++i) {
      const trAtmosSample& sample = integrator.Sample(i);
      const double weight = Luminance(sample.throughput * sample.colourDirect);
      weights += weight;
      distances += weight * sample.distance;
      shares[std::find(volumes.begin(), volumes.end(), sample.owner) - volumes.begin()] += weight;
    }
  }
  if (parts) parts->distance = static_cast<float>(weights > 0 ? distances / weights : 0);
  return sum * (1.0f / kDraws);
}

bool BounceSky::Find(const trVector& point, const trVector& direction, Place& place) const {
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
  place.height = Between((r - lowest_) / (highest_ - lowest_), kHeights);
  place.sunAngle = Between((sunCosine - leastSun_) / (greatestSun_ - leastSun_), kSunAngles);
  place.elevation = Between(SafeSqrt((sine - kLowest) / (1 - kLowest)), kElevations);
  place.turn = Between(std::sqrt(phi / kPi), kTurns);
  return true;
}

bool BounceSky::Lookup(const trVector& point, const trVector& direction, trFCol& radiance) const {
  Place place;
  if (!Find(point, direction, place)) return false;
  radiance = trFCol();
  for (int corner = 0; corner < 8; ++corner) {
    const int i = corner & 1, j = corner >> 1 & 1, k = corner >> 2;
    const trFCol* entry = &table_[Index(place.height.index + i, place.sunAngle.index + j,
                                        place.elevation.index + k, place.turn.index)];
    radiance += (entry[0] + (entry[1] - entry[0]) * place.turn.weight) * place.Weight(corner);
  }
  return true;
}

bool BounceSky::Lookup(const trVector& point, const trVector& direction, Light& light) const {
  Place place;
  if (parts_.empty() || !Find(point, direction, place)) return false;
  light = Light();
  for (int corner = 0; corner < 16; ++corner) {
    const int i = corner & 1, j = corner >> 1 & 1, k = corner >> 2 & 1, l = corner >> 3;
    const Light& entry = parts_[Index(place.height.index + i, place.sunAngle.index + j,
                                      place.elevation.index + k, place.turn.index + l)];
    const float weight = place.Weight(corner & 7) * (l ? place.turn.weight : 1 - place.turn.weight);
    light.direct += entry.direct * weight;
    light.enviro += entry.enviro * weight;
    light.distance += entry.distance * weight;
  }
  return true;
}

}  // namespace ovhost
