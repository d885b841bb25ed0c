// The march: all volumes along a ray, whoever asks.
#pragma once

#include "core/atmosphere.h"

namespace ovhost {

/// A ray through the air.
struct AirRay {
  trVector origin, direction;  ///< of the world; unit length
  double distance = 0;         ///< to where it ends, metres
  int depth = 1;               ///< 1 for rays that the eye sees by, the next for what comes before
  bool isSharp = true;         ///< few samples do where the air is seen blurred
  double pixelAngle = 0;       ///< of the picture's pixels, radians
};

/// The volumes' light and transmittance along a ray, by the state's draws. The ray becomes the state's ray in
/// hand, and stays it. `samples` counts. Thread-safe, each thread with its own state.
OV_API trAtomicIntegrator::Result MarchAir(trRenderState& state, const std::vector<trAtmosShader*>& volumes,
                                           const AirRay& ray, std::uint64_t& samples);

/// The same between two points, one ray deeper than the ray in hand, which comes back as it was. Without
/// `wantsColour` transmittance is all that is asked for.
OV_API trAtomicIntegrator::Result MarchBetween(trRenderState& state,
                                               const std::vector<trAtmosShader*>& volumes,
                                               const trVector& from, const trVector& to, bool wantsColour);

}  // namespace ovhost
