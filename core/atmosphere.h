// Volumes along a ray: the samples of all atmosphere shaders, sorted by depth and composited front to back.
#pragma once

#include "core/render_state.h"

/// One sample of one volume on the ray in hand.
struct trAtmosSample {
  trAtmosShader* owner = nullptr;
  trVector position;
  double distance = 0;      ///< from the ray's origin, metres
  void* rayData = nullptr;  ///< the owner's record of the ray
  int index = 0;            ///< the owner's sample number; -1 marks an opaque stop
  trFCol colourDirect, colourEnviro;
  trFCol opacityDirect, opacityEnviro;
  /// What the integrator has left of the ray's transmission at this sample.
  trFCol throughput{1.0f};
};

/// Has a state ask what comes through from a point to a light, on every way out.
class trTransmissionRay {
 public:
  trTransmissionRay(trRenderState& state, const trLightState& light, const trVector& point) : guard_(state) {
    trRenderState::Ray& ray = state.CurrentRay();
    double distance;
    ray.origin = point;
    ray.end = light.TracePos(point, distance);
    ray.depth = guard_.saved.depth + 1;
    ray.wantsColour = false;
  }

 private:
  const trRayGuard guard_;
};

/// Collects and composites. Per-thread state; reused from ray to ray without allocating.
class OV_API trAtomicIntegrator {
 public:
  trAtomicIntegrator();
  ~trAtomicIntegrator();
  trAtomicIntegrator(const trAtomicIntegrator&) = delete;
  trAtomicIntegrator& operator=(const trAtomicIntegrator&) = delete;

  /// Starts over for the ray of `state`.
  void Begin(trRenderState& state);
  /// Adds a sample of `owner` at a point of the ray; null when the ray has as many as it takes. The pointer
  /// holds until the next call.
  trAtmosSample* AddSample(trAtmosShader* owner, const trVector& position);

  struct Result {
    trFCol direct, enviro;
    trFCol transmittance{1.0f};
    trFCol Colour() const { return direct + enviro; }
  };
  /// Runs the volumes over the state's ray: samples, sorts, evaluates and composites. The volumes' records
  /// are kept for later rays, also of other volumes.
  Result Integrate(trRenderState& state, trAtmosShader* const* volumes, size_t count);
  Result Integrate(trRenderState& state, const std::vector<trAtmosShader*>& volumes) {
    return Integrate(state, volumes.data(), volumes.size());
  }
  int NumSamples() const { return static_cast<int>(samples_.size()); }
  const trAtmosSample& Sample(int i) const { return samples_[i]; }
  /// Frees every volume's record. Called before the volumes may be changed or destroyed.
  void FreeRayData();

 private:
  struct Slot {
    trAtmosShader* volume;
    void* rayData;
  };
  void*& RecordOf(trAtmosShader* volume);

  std::vector<trAtmosSample> samples_;
  std::vector<int> order_;
  std::vector<Slot> slots_;
  trVector origin_, direction_;
};

/// The integrators of a render state: one for each ray that is asked for while another is integrated.
/// Per-thread state.
class OV_API trIntegratorStore {
 private:
  friend class trIntegratorLoan;
  std::vector<std::unique_ptr<trAtomicIntegrator>> integrators_;
  size_t numLent_ = 0;
};

/// An integrator of a state's own for one ray, also within the evaluation of another's samples; kept for the
/// next that is lent, so nothing is allocated once each depth of nesting has been reached.
class OV_API trIntegratorLoan {
 public:
  explicit trIntegratorLoan(trRenderState& state);
  ~trIntegratorLoan() { --store_.numLent_; }
  trIntegratorLoan(const trIntegratorLoan&) = delete;
  trIntegratorLoan& operator=(const trIntegratorLoan&) = delete;
  trAtomicIntegrator& operator*() const { return integrator_; }
  trAtomicIntegrator* operator->() const { return &integrator_; }

 private:
  trIntegratorStore& store_;
  trAtomicIntegrator& integrator_;
};
