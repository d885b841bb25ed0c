// The march: all volumes along a ray, whoever asks.
#pragma once

#include "core/atmosphere.h"
#include "host/render/air/air_record.h"

namespace ovhost {

/// A ray through the air.
struct AirRay {
  trVector origin, direction;  ///< of the world; unit length
  double distance = 0;         ///< to where it ends, metres
  int depth = 1;               ///< 1 for rays that the eye sees by, the next for what comes before
  bool isSharp = true;         ///< few samples do where the air is seen blurred
  double pixelAngle = 0;       ///< of the picture's pixels, radians
  bool tracesShadows = true, modulatesLight = true, filtersSky = true,
       limitsEnviro = true;  ///< as a state's ray has them
};

/// Depth of rays on which volumes gather light for themselves: deep enough for sky light that they see to be
/// that of the tables, since changes by place are worked out from what volumes look like.
constexpr int kDepthOfBackground = 3;

/// Makes it the state's ray in hand.
OV_API void PutInHand(trRenderState& state, const AirRay& ray);

/// The volumes' light and transmittance along a ray, by the state's draws. The ray becomes the state's ray in
/// hand, and stays it. `samples` counts; `record`, where there is one, takes the steps. Thread-safe, each
/// thread with its own state.
OV_API trAtomicIntegrator::Result MarchAir(trRenderState& state, const std::vector<trAtmosShader*>& volumes,
                                           const AirRay& ray, std::uint64_t& samples,
                                           AirRecord* record = nullptr);

/// The same between two points, one ray deeper than the ray in hand, which comes back as it was. Without
/// `wantsColour` transmittance is all that is asked for.
OV_API trAtomicIntegrator::Result MarchBetween(trRenderState& state,
                                               const std::vector<trAtmosShader*>& volumes,
                                               const trVector& from, const trVector& to, bool wantsColour);

/// Key of draws that hang on a point alone, so that it doesn't matter who asks.
OV_API std::uint64_t KeyOfPoint(const trVector& point);

/// Draws by a key in place of a state's own, which come back on every way out.
class KeyedDraws {
 public:
  KeyedDraws(trRenderState& state, std::uint64_t key) : random_(state.Shading().Random()), saved_(random_) {
    random_ = {key};
  }
  ~KeyedDraws() { random_ = saved_; }
  KeyedDraws(const KeyedDraws&) = delete;
  KeyedDraws& operator=(const KeyedDraws&) = delete;
  /// Starts over by another key.
  void Restart(std::uint64_t key) { random_ = {key}; }

 private:
  trRandomStream& random_;
  const trRandomStream saved_;
};

}  // namespace ovhost
