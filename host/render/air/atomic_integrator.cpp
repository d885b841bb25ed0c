// Volumes along a ray: collects the samples of all of them, puts them in order of depth and composites front
// to back.
#include <algorithm>
#include <cmath>

#include "core/atmosphere.h"

namespace {

/// A ray's samples of all volumes together.
constexpr size_t kMaxSamples = 1u << 18;
/// Room that there is from the start, so that longer rays hardly ever have to make some.
constexpr size_t kUsualSamples = 256;
/// What less than this of the light gets past doesn't show.
constexpr float kOpaque = 1e-4f;

float Opacity(float o) { return o > 0.0f ? std::min(o, 1.0f) : 0.0f; }

constexpr float kBrightest = 1e30f;

[[gnu::noinline, gnu::cold]] trFCol Bounded(trFCol c) {
  for (int i = 0; i < 3; ++i) c[i] = std::isnan(c[i]) ? 0.0f : std::clamp(c[i], -kBrightest, kBrightest);
  return c;
}

/// A colour that sums stay finite with.
inline trFCol Finite(const trFCol& c) {
  const bool isFine = std::fabs(c.r) + std::fabs(c.g) + std::fabs(c.b) <= kBrightest;
  return __builtin_expect(isFine, 1) ? c : Bounded(c);
}

/// Dims `left` by the part that a sample covers.
void Cover(trFCol& left, const trFCol& opacity) {
  for (int c = 0; c < 3; ++c) left[c] *= 1.0f - Opacity(opacity[c]);
}

}  // namespace

trAtomicIntegrator::trAtomicIntegrator() {
  samples_.reserve(kUsualSamples);
  order_.reserve(kUsualSamples);
}

trAtomicIntegrator::~trAtomicIntegrator() { FreeRayData(); }

void trAtomicIntegrator::Begin(trRenderState& state) {
  const trRenderState::Ray& ray = state.CurrentRay();
  origin_ = ray.origin;
  direction_ = Normalised(ray.end - ray.origin);
  samples_.clear();
}

trAtmosSample* trAtomicIntegrator::AddSample(trAtmosShader* owner, const trVector& position) {
  if (samples_.size() >= kMaxSamples) return nullptr;
  trAtmosSample& sample = samples_.emplace_back();
  sample.owner = owner;
  sample.position = position;
  const double distance = Dot(position - origin_, direction_);
  sample.distance = std::isfinite(distance) ? distance : 0.0;
  return &sample;
}

void*& trAtomicIntegrator::RecordOf(trAtmosShader* volume) {
  for (Slot& slot : slots_)
    if (slot.volume == volume) return slot.rayData;
  return slots_.emplace_back(Slot{volume, nullptr}).rayData;
}

trAtomicIntegrator::Result trAtomicIntegrator::Integrate(trRenderState& state, trAtmosShader* const* volumes,
                                                         size_t numVolumes) {
  Begin(state);
  for (size_t i = 0; i < numVolumes; ++i) volumes[i]->AddRaySamples(state, *this, RecordOf(volumes[i]));

  // By depth, and in the order of adding at equal depth. One volume's samples come in order already.
  const size_t count = samples_.size();
  bool isInOrder = true;
  for (size_t i = 1; i < count; ++i) isInOrder &= samples_[i - 1].distance <= samples_[i].distance;
  if (!isInOrder) {
    order_.resize(count);
    for (size_t i = 0; i < count; ++i) order_[i] = static_cast<int>(i);
    std::sort(order_.begin(), order_.end(), [this](int a, int b) {
      const double da = samples_[a].distance, db = samples_[b].distance;
      return da != db ? da < db : a < b;
    });
  }

  Result result;
  trFCol enviroLeft(1.0f);
  for (size_t i = 0; i < count; ++i) {
    trAtmosSample& sample = samples_[isInOrder ? i : order_[i]];
    sample.throughput = result.transmittance;
    sample.owner->EvaluateRaySample(state, sample);
    result.direct += result.transmittance * Finite(sample.colourDirect);
    result.enviro += enviroLeft * Finite(sample.colourEnviro);
    Cover(result.transmittance, sample.opacityDirect);
    Cover(enviroLeft, sample.opacityEnviro);
    if (result.transmittance.MaxChannel() < kOpaque && enviroLeft.MaxChannel() < kOpaque) {
      result.transmittance = trFCol();
      break;
    }
  }
  return result;
}

void trAtomicIntegrator::FreeRayData() {
  for (Slot& slot : slots_) slot.volume->FreeIntegrationData(*this, slot.rayData);
  slots_.clear();
}

trIntegratorLoan::trIntegratorLoan(trRenderState& state)
    : store_(state.Integrators()), integrator_([this]() -> trAtomicIntegrator& {
        auto& all = store_.integrators_;
        if (store_.numLent_ == all.size()) all.push_back(std::make_unique<trAtomicIntegrator>());
        return *all[store_.numLent_++];
      }()) {}

trFCol trAtmosShader::TransmittanceTowards(trRenderState& state, const trLightState& light,
                                           const trVector& point, const trVector&) {
  const trTransmissionRay ray(state, light, point);
  trIntegratorLoan integrator(state);
  trAtmosShader* const self = this;
  return integrator->Integrate(state, &self, 1).transmittance;
}
