// Tables of light in the air.
#include "host/render/air/sky_tables.h"

#include <algorithm>

#include "host/base/parallel.h"
#include "host/base/sampler.h"
#include "host/render/air/sky_directions.h"

namespace ovhost {
namespace {

/// Rays averaged for one entry: the volumes place their samples at random.
constexpr int kTransmittanceDraws = 6;
constexpr int kSkyDirections = 24;

double SafeSqrt(double x) { return std::sqrt(std::fmax(x, 0)); }

/// Splits a coordinate of a table of n entries into an index and a weight of the next.
int Locate(float x, int n, float& weight) {
  const float at = x > 0 ? std::fmin(x, 1.0f) * static_cast<float>(n - 1) : 0.0f;
  const int index = std::min(static_cast<int>(at), n - 2);
  weight = at - static_cast<float>(index);
  return index;
}

trFCol Mix(const trFCol& a, const trFCol& b, float t) { return a + (b - a) * t; }

}  // namespace

void SkyTables::BuildTransmittance(const std::vector<trAtmosShader*>& volumes, const trVolumeShape& shell,
                                   trRenderServices& services) {
  centre_ = shell.centre;
  inner_ = shell.innerRadius;
  outer_ = shell.outerRadius;
  const double horizon = SafeSqrt(outer_ * outer_ - inner_ * inner_);
  horizonLength_ = static_cast<float>(horizon);
  invHorizon_ = 1 / horizonLength_;

  transmittance_.assign(kHeights * kAngles, trFCol(1.0f));
  ParallelFor(kHeights, [&](size_t index) {
    const int row = static_cast<int>(index);
    trShadingInterface si;
    si.SetThread(ThreadSlot());
    trRenderState state(services, si);
    trAtomicIntegrator integrator;
    const double rho = horizon * row / (kHeights - 1), r = std::sqrt(rho * rho + inner_ * inner_);
    for (int column = 0; column < kAngles; ++column) {
      const double shortest = outer_ - r, longest = rho + horizon;
      const double d = shortest + (longest - shortest) * column / (kAngles - 1);
      const double mu =
          d > 0 ? std::clamp((horizon * horizon - rho * rho - d * d) / (2 * r * d), -1.0, 1.0) : 1.0;
      const trVector origin = centre_ + trVector(0, r, 0);
      trRenderState::Ray& ray = state.CurrentRay();
      ray.origin = origin;
      ray.end = origin + trVector(SafeSqrt(1 - mu * mu), mu, 0) * (d + 1);
      ray.depth = 1;
      ray.wantsColour = false;
      ray.tracesShadows = false;
      trFCol sum;
      for (int draw = 0; draw < kTransmittanceDraws; ++draw) {
        si.Random() = {MixBits64((row * kAngles + column) * 64ull + draw)};
        integrator.Begin(state);
        sum += integrator.Integrate(state, volumes).transmittance;
      }
      transmittance_[row * kAngles + column] = sum * (1.0f / kTransmittanceDraws);
    }
    integrator.FreeRayData();
  });
}

trFCol SkyTables::Transmittance(const trVector& point, const trVector& direction, double radius) const {
  const trVector fromCentre = point - centre_;
  double r2 = fromCentre.LengthSquared();
  double along = Dot(fromCentre, direction);  // r cos(angle)
  if (r2 > outer_ * outer_) {
    // From outside: start where the ray enters, or leave it clear.
    const double discriminant = along * along - r2 + outer_ * outer_;
    if (along >= 0 || discriminant <= 0) return trFCol(1.0f);
    along = -std::sqrt(discriminant);
    r2 = outer_ * outer_;
  }
  r2 = std::fmax(r2, inner_ * inner_);
  // Differences of squares need doubles; their roots don't.
  const float rho = std::sqrt(static_cast<float>(r2 - inner_ * inner_));  // to the ball's horizon

  // The part of the disc above that horizon: the angle over it, as a share of the disc's radius.
  float visible = 1;
  if (along < std::fmax(radius, 1e-4) * inner_ - rho) {
    const double over = (along + rho) / (std::fmax(radius, 1e-4) * inner_);
    if (over <= -1) return {};
    visible = static_cast<float>(SmoothStep(0.5 * (over + 1)));
    along = std::fmax(along, -rho);
  }
  const float reach = std::sqrt(std::fmax(static_cast<float>(along * along - r2 + outer_ * outer_), 0.0f));
  const float d = static_cast<float>(reach - along);
  const float shortest = static_cast<float>(outer_ - std::sqrt(r2)), longest = rho + horizonLength_;
  float tr, ta;
  const int row = Locate(rho * invHorizon_, kHeights, tr);
  const int column = Locate((d - shortest) / (longest - shortest + 1e-6f), kAngles, ta);
  const trFCol* t = &transmittance_[row * kAngles + column];
  return Mix(Mix(t[0], t[1], ta), Mix(t[kAngles], t[kAngles + 1], ta), tr) * visible;
}

void SkyTables::BuildEnviro(const std::vector<trAtmosShader*>& volumes, trRenderServices& services,
                            const trVector& sunDirection, bool severalSuns, const GroundQuery& ground) {
  above_.clear();
  below_.clear();
  if (!IsBuilt()) return;
  sunAxis_ = sunDirection;
  sideAxis_ =
      Normalised(std::fabs(sunAxis_.y) < 0.9 ? Cross(sunAxis_, {0, 1, 0}) : Cross(sunAxis_, {1, 0, 0}));
  skyTurns_ = severalSuns ? kSkyTurns : 1;
  const trVector third = Cross(sunAxis_, sideAxis_);
  const size_t entries = static_cast<size_t>(kSkyHeights) * kSkyAngles * skyTurns_;
  for (int round = 0; round < 2; ++round) {
    std::vector<trFCol> above(entries), below(entries);
    ParallelFor(entries, [&](size_t entry) {
      const int turn = static_cast<int>(entry % skyTurns_),
                angle = static_cast<int>(entry / skyTurns_ % kSkyAngles),
                height = static_cast<int>(entry / skyTurns_ / kSkyAngles);
      const double theta = 3.14159265358979 * angle / (kSkyAngles - 1),
                   phi = 2 * 3.14159265358979 * turn / skyTurns_;
      const trVector up =
          sunAxis_ * std::cos(theta) + (sideAxis_ * std::cos(phi) + third * std::sin(phi)) * std::sin(theta);
      const double x = static_cast<double>(height) / (kSkyHeights - 1);
      const trVector origin = centre_ + up * (inner_ + (outer_ - inner_) * x * x);
      trShadingInterface si;
      si.SetThread(ThreadSlot());
      trRenderState state(services, si);
      trAtomicIntegrator integrator;
      for (const bool upper : {true, false}) {
        trFCol sum;
        for (int i = 0; i < kSkyDirections; ++i) {
          const trVector direction = HemisphereDirection(i, kSkyDirections, upper ? up : -up);
          double distance = 3 * outer_;
          const trFCol leaving = ground(origin, direction, distance);
          si.Random() = {MixBits64(entry * 128 + i * 2 + upper)};
          trRenderState::Ray& ray = state.CurrentRay();
          ray.origin = origin;
          ray.end = origin + direction * distance;
          ray.depth = 2;
          ray.wantsColour = true;
          ray.tracesShadows = ray.modulatesLight = false;
          integrator.Begin(state);
          const trAtomicIntegrator::Result air = integrator.Integrate(state, volumes);
          sum += air.Colour() + air.transmittance * leaving;
        }
        (upper ? above : below)[entry] = sum * (2.0f / kSkyDirections);
      }
      integrator.FreeRayData();
    });
    above_ = std::move(above);
    below_ = std::move(below);
  }
}

void SkyTables::Enviro(const trVector& point, trFCol& above, trFCol& below) const {
  above = below = trFCol();
  if (above_.empty()) return;
  const trVector fromCentre = point - centre_;
  const double r = fromCentre.Length();
  const trVector up = fromCentre * (1 / std::fmax(r, 1.0));
  float wHeight, wAngle;
  const int height =
      Locate(static_cast<float>(SafeSqrt((r - inner_) / (outer_ - inner_))), kSkyHeights, wHeight);
  const int angle =
      Locate(static_cast<float>(std::acos(std::clamp(Dot(up, sunAxis_), -1.0, 1.0)) / 3.14159265358979),
             kSkyAngles, wAngle);
  int turn = 0, nextTurn = 0;
  float wTurn = 0;
  if (skyTurns_ > 1) {
    double phi = std::atan2(Dot(up, Cross(sunAxis_, sideAxis_)), Dot(up, sideAxis_)) / (2 * 3.14159265358979);
    phi = (phi - std::floor(phi)) * skyTurns_;
    turn = static_cast<int>(phi) % skyTurns_;
    nextTurn = (turn + 1) % skyTurns_;
    wTurn = static_cast<float>(phi - std::floor(phi));
  }
  const auto lookup = [&](const std::vector<trFCol>& table) {
    const auto at = [&](int h, int a) {
      const trFCol* row = &table[(static_cast<size_t>(h) * kSkyAngles + a) * skyTurns_];
      return skyTurns_ > 1 ? Mix(row[turn], row[nextTurn], wTurn) : row[0];
    };
    return Mix(Mix(at(height, angle), at(height, angle + 1), wAngle),
               Mix(at(height + 1, angle), at(height + 1, angle + 1), wAngle), wHeight);
  };
  above = lookup(above_);
  below = lookup(below_);
}

}  // namespace ovhost
