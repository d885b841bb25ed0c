// Asks the shaders of a cloud layer for what they say at points of the shell.
#pragma once

#include "atmosphere/cloud_hooks.h"
#include "atmosphere/cloud_ray.h"
#include "atmosphere/cloud_settings.h"
#include "core/idioms.h"

/// What there is of a cloud at a point.
struct CloudSample {
  trFCol density;       ///< above the cloud's surface; nothing below 0
  trFCol opacity;       ///< at most 1 but for modulators: the share of full extinction
  float thickness = 1;  ///< of the depth modulator
  bool isNear = false;  ///< cloud is at the point, or may begin not far from it
};

/// Per-thread state: has the shading state in hand while it lives, and puts it back.
class CloudProbe {
 public:
  CloudProbe(const CloudSettings& settings, const CloudDerived& derived, CloudHooks* hooks,
             trShader* paintSolver, const CloudThread& thread, trRenderState& state);

  /// Details smaller than this don't count, metres.
  void SetLeastDetail(double size) { leastDetail_ = size; }
  /// Moves to a point, metres of the world.
  void MoveTo(const trVector& point);
  double Height() const { return (point_.centreDistance - derived_.baseRadius) * derived_.invDepth; }
  /// 1 inside of the local sphere, falling towards its rim; 0 beyond.
  float LocalEnvelope() const;
  /// Whether cloud may be at heights beyond 0 to 1.
  bool MovesHeight() const { return movesHeight_; }
  enum class Found { kNothing, kClear, kCloud };
  /// The shaders' answer at the point: nothing beyond the shell; clear with a density below 0.
  Found Sample(float localEnvelope, CloudSample& sample);
  /// Colour of one of the layer's shaders at the point; white without one.
  trFCol Modulator(CloudLink link);

 private:
  void SetUp();
  trFCol ColourOf(trShader& shader);
  float Paint();
  trFCol Coverage(float localEnvelope, float paint);

  const CloudSettings& settings_;
  const CloudDerived& derived_;
  CloudHooks* const hooks_;
  trShader* const paintSolver_;
  const CloudThread& thread_;
  trRenderState& state_;
  trShadingInterface& si_;
  const trShadingGuard guard_;
  const bool movesHeight_;
  double leastDetail_ = 0;
  CloudPoint point_;
};
