// Planning: where a ray runs through the shell, how many samples it is worth, and where they lie.
#include <cmath>
#include <new>

#include "atmosphere/atmosphere_medium.h"
#include "atmosphere/media_lanes.h"
#include "atmosphere/planet_atmosphere.h"
#include "core/idioms.h"

namespace {

/// Highest number of a sample: a ray has one more.
constexpr double kLastSample = 8095.0;
/// Segments that a record has room for from the start.
constexpr int kUsualSegments = 64;

double Squared(double x) { return x * x; }

/// Parameters along `direction` (not of unit length) where the line meets a sphere. False if it misses or
/// grazes.
bool IntersectSphere(const trVector& fromCentre, const trVector& direction, double radiusSquared, double& t0,
                     double& t1) {
  const double a = direction.LengthSquared();
  const double b = Dot(direction, fromCentre);
  const double discriminant = b * b - a * (fromCentre.LengthSquared() - radiusSquared);
  if (!(discriminant > 0.0) || !(a > 0.0)) return false;
  const double root = std::sqrt(discriminant);
  t0 = (-b - root) / a;
  t1 = (-b + root) / a;
  return t0 <= 1.0 && t1 >= 0.0;
}

trFCol NonNegative(const trManRgb& c) {
  return {std::max(c.r, 0.0f), std::max(c.g, 0.0f), std::max(c.b, 0.0f)};
}

}  // namespace

void PlanetAtmosphere::PrepareDerived() {
  if (!derivedDirty_.load(std::memory_order_acquire)) return;
  const std::lock_guard<std::mutex> hold(mutex_);
  if (!derivedDirty_.load(std::memory_order_relaxed)) return;

  derived_.floorRadiusSquared = Squared(std::max(0.0, radius_ + std::min(floor_, ceiling_)));
  derived_.ceilingRadiusSquared = Squared(std::max(0.0, radius_ + std::max(floor_, ceiling_)));
  derived_.invHazeHeight = SafeReciprocal(hazeExpHeight_);
  derived_.invBlueskyHeight = SafeReciprocal(blueskyExpHeight_);
  derived_.invSamples = 1.0 / std::max(numberOfSamples_, 1L);

  derived_.blueskyAnisotropy = derived_.hazeAnisotropy = 0;
  if (anisotropicEnviroLight_) {
    // How little a medium throws straight back tells how much of it goes on downwards.
    const auto anisotropy = [this](double amount, double power) {
      return 1.0f - atmosphere::GlowPhase(-1.0f, true, 9.999999974752427e-7f, static_cast<float>(amount),
                                          static_cast<float>(power), improvedGlowModel_ != 0);
    };
    derived_.blueskyAnisotropy = anisotropy(blueskyGlowAmount_, blueskyGlowPower_);
    derived_.hazeAnisotropy = anisotropy(hazeGlowAmount_, hazeGlowPower_);
  }

  trBase* linked = shadowFunction_.LinkedNode(true);
  derived_.shadowFunction = linked && linked->IsTrue("is_shader") ? static_cast<trShader*>(linked) : nullptr;
  derivedDirty_.store(false, std::memory_order_release);
}

long PlanetAtmosphere::AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) {
  if (!IsEnabled()) return 1;
  PrepareDerived();
  trRenderState::Ray& ray = state.CurrentRay();
  if (!(ray.depth <= 1 ? enablePrimary_ : enableSecondary_)) return 1;

  if (!ray.wantsColour && ray.depth >= 2 && StrikesFloor(ray)) {
    if (trAtmosSample* sample = integrator.AddSample(this, ray.origin)) sample->index = -1;
    return 1;
  }

  if (!rayData) rayData = new (std::nothrow) AtmosphereRayData;
  if (!rayData) return 1;
  AtmosphereRayData& data = *static_cast<AtmosphereRayData*>(rayData);

  const trRenderState::Ray saved = ray;
  ray.tracesShadows = ray.tracesShadows && enableRayTracedShadows_;
  Span span;
  if (FindSpan(state, data, span)) AddSegments(state, integrator, span, data);
  ray = saved;
  return 1;
}

bool PlanetAtmosphere::StrikesFloor(const trRenderState::Ray& ray) const {
  double t0, t1;
  return IntersectSphere(ray.origin - centre_, ray.end - ray.origin, Squared(std::max(0.0, floor_ + radius_)),
                         t0, t1);
}

bool PlanetAtmosphere::FindSpan(trRenderState& state, AtmosphereRayData& data, Span& span) const {
  const trRenderState::Ray& ray = state.CurrentRay();
  const trVector direction = ray.end - ray.origin;
  double t0, t1;
  if (!IntersectSphere(ray.origin - centre_, direction, derived_.ceilingRadiusSquared, t0, t1)) return false;
  const trVector exit = t1 > 1.0 ? ray.end : ray.origin + direction * t1;
  span.entry = t0 < 0.0 ? ray.origin : ray.origin + direction * t0;
  const trVector inside = exit - span.entry;
  const double length = inside.Length();
  if (!(length >= 1e-12) || !std::isfinite(length)) return false;
  data.rayDirectionScaled = direction * (1.0 / length);
  span.towardsEye = Normalised(-inside);

  // The budget is rounded up or down by chance, so that a fractional one is met on average.
  const double drawn = std::floor(state.Random() + SampleBudget(ray, length));
  const double whole = std::min(drawn, kLastSample - 1.0);
  const double steps = whole + 1.00001;
  span.last = static_cast<int>(std::min(std::trunc(steps), kLastSample));
  span.stepLength = length / steps;
  span.step = inside * (1.0 / steps);
  return true;
}

double PlanetAtmosphere::SampleBudget(const trRenderState::Ray& ray, double length) const {
  double budget = static_cast<double>(std::max(numberOfSamples_, 0L));
  if (adjustToDistance_) budget *= std::sqrt(length / std::fabs(ceiling_ - floor_));
  if (!(budget > 0.0)) return 0.0;  // no samples over no shell included
  if (ray.depth < 2) return budget;

  // Secondary rays spend about the square root of the primary budget, deep ones much less.
  double weight = 1.0 - 0.5 * ray.quality;
  if (!(ray.wantsColour && (ray.depth < 3 || ray.quality >= 0.5))) weight *= ray.depth - 1;
  return std::pow(budget, 1.0 / (1.0 + weight));
}

void PlanetAtmosphere::FillLights(trRenderState& state, const Span& span, AtmosphereRayData& data) const {
  const trRenderState::Ray& ray = state.CurrentRay();
  const auto phase = [this](double c, bool glow, double radius, double amount, double power) {
    return static_cast<double>(atmosphere::GlowPhase(static_cast<float>(c), glow, static_cast<float>(radius),
                                                     static_cast<float>(amount), static_cast<float>(power),
                                                     improvedGlowModel_ != 0));
  };
  const bool sameGlow = blueskyGlowAmount_ == hazeGlowAmount_ && blueskyGlowPower_ == hazeGlowPower_;
  data.lights.clear();
  data.hazePhase.clear();
  data.blueskyPhase.clear();
  for (int i = 0; i < state.NumLights(); ++i) {
    const trLightState* light = state.Light(i);
    if (light->IsEnviroLight()) continue;
    const double radius = std::max(0.7 * ray.pixelAngularSize, light->AngularRadiusInRadians(span.entry));
    const bool glow = light->DoGlowInAtmosphere();
    const double c = -Dot(span.towardsEye, light->Dir(span.entry));
    const double haze = phase(c, glow, radius, hazeGlowAmount_, hazeGlowPower_);
    double bluesky = 1.0;
    if (rayleighPhaseFunction_)
      bluesky = atmosphere::RayleighPhase(c);
    else if (improvedGlowModel_)
      bluesky = sameGlow ? haze : phase(c, glow, radius, blueskyGlowAmount_, blueskyGlowPower_);
    data.lights.push_back(light);
    data.hazePhase.push_back(haze);
    data.blueskyPhase.push_back(bluesky);
  }
  data.lightCount = static_cast<int>(data.lights.size());
}

void PlanetAtmosphere::AddSegments(trRenderState& state, trAtomicIntegrator& integrator, const Span& span,
                                   AtmosphereRayData& data) {
  // A ray that only asks what comes through needs the density's colour too.
  data.blueskyDensityColour = NonNegative(blueskyDensityColour_);
  data.wantsEnviro = false;
  data.enviroValid = 0;
  data.lightCount = 0;
  data.blockFirst = data.blockEnd = 0;
  const trRenderState::Ray& ray = state.CurrentRay();
  if (ray.wantsColour) {
    data.blueskyHorizon = blueskyHorizonColour_.ToRender();
    data.hazeHorizon = hazeHorizonColour_.ToRender();
    data.wantsEnviro = (ray.depth < 3 || !ray.limitsEnviro) && enviroLight_ != 0 &&
                       !enviroLightTint_.ToRender().IsBlack() &&
                       !(data.blueskyHorizon.IsBlack() && data.hazeHorizon.IsBlack());
    data.enviroPhase16 = static_cast<int>(state.Random() * 16.0);
    data.enviroPhase256 = static_cast<int>(state.Random() * 256.0);
    FillLights(state, span, data);
  }

  // Sample boundaries go by the square of their number, so they crowd towards the viewer.
  const int last = span.last;
  const double inverse = 1.0 / last, even = state.Random();
  if (data.segments.size() < static_cast<size_t>(last) + 1)
    data.segments.resize(std::max(last + 1, kUsualSegments));
  data.segmentCount = last + 1;
  const int blocks = (data.segmentCount + atmosphere::kMediaBlock - 1) / atmosphere::kMediaBlock;
  data.blockSize = (data.segmentCount + blocks - 1) / blocks;
  trVector start = span.entry;
  for (int k = 0; k <= last; ++k) {
    double high = k + even, low = high - 1.0, within = 0.5;
    if (k == last) {
      high = last;
      within = state.Random();
    }
    if (k == 0) {
      low = 0.0;
      within = state.Random();
    }
    AtmosphereSegment& segment = data.segments[k];
    segment.start = start;
    segment.end = span.entry + span.step * (high * high * inverse);
    segment.mid = (segment.start + segment.end) * 0.5;
    const trVector across = segment.end - segment.start;
    segment.jittered = segment.start + across * within;
    segment.length = across.Length();
    const double number = (within * high + (1.0 - within) * low) * inverse;
    segment.lightSpot = (number + inverse) * 2.0 * span.stepLength;
    segment.enviroSpot = (number + 16.0 * inverse) * 2.0 * span.stepLength;
    start = segment.end;
    if (trAtmosSample* sample = integrator.AddSample(this, segment.jittered)) {
      sample->rayData = &data;
      sample->index = k;
    }
  }
}
