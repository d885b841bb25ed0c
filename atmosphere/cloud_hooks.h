// What a subclass of the cloud layers does around the shaders of its density.
#pragma once

#include "core/render_state.h"

/// A point of the shell at which density is asked for. World space, metres.
struct CloudPoint {
  trVector position;
  trVector up;            ///< unit, away from the planet's centre
  double centreDistance;  ///< from the planet's centre
};

/// Steps into the density at a point. The state is set up for the shader in hand: P and Pt at the point as
/// textures see it, Pg below it on the planet's sphere. What a hook changes of the state lasts for that
/// shader alone, but for DEV_CloudFeatureScalar, which lasts until the density is done. Thread-safe.
class CloudHooks {
 public:
  virtual ~CloudHooks() = default;
  /// Multiplies the density: 0 is no cloud.
  virtual float Envelope(trShadingInterface&, const CloudPoint&) { return 1.0f; }
  virtual void BeforeDensity(trShadingInterface&, const CloudPoint&) {}
  virtual void AfterDensity(trShadingInterface&, const CloudPoint&, trFCol&) {}
  virtual void BeforeDepthModulator(trShadingInterface&, const CloudPoint&) {}
  virtual void AfterDepthModulator(trShadingInterface&, const CloudPoint&, trFCol&) {}
  virtual void BeforeFinalModulator(trShadingInterface&, const CloudPoint&) {}
  virtual void AfterFinalModulator(trShadingInterface&, const CloudPoint&, trFCol&) {}
};
