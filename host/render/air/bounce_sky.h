// What diffuse bounces see of the open sky near the eye: a table in place of a ray's own integral.
#pragma once

#include <vector>

#include "core/atmosphere.h"

namespace ovhost {

/// Radiance of the sky by height, sun angle and direction, for volumes that are symmetric round one centre
/// and a single sun. It holds for points round the eye only; elsewhere rays are integrated. Computed with the
/// volumes' own samples, as a bounced ray would have, averaged over an entry's share of directions.
class OV_API BounceSky {
 public:
  /// Points further from the eye than this aren't covered, metres.
  static constexpr double kReach = 60000;

  /// `places` are points of the world that bounces may start near; those out of reach of `eye` are left out.
  /// Light of suns and of the sky are told apart where `isByPart`; then the volumes' shares of suns' light
  /// are returned. Main thread only, inside the arena whose workers are to be used.
  std::vector<double> Build(const std::vector<trAtmosShader*>& volumes, trRenderServices& services,
                            const trVector& centre, const trVector& sunDirection, const trVector& eye,
                            const std::vector<trVector>& places, bool isByPart = false);

  /// What comes along a ray, without what modulates light.
  struct Light {
    trFCol direct, enviro;  ///< radiance, of suns and of the sky
    float distance = 0;     ///< to where suns' light is scattered, on average, metres
  };
  /// Radiance that comes to `point` of the world against `direction`, from beyond everything. False where the
  /// table doesn't tell. Thread-safe.
  bool Lookup(const trVector& point, const trVector& direction, trFCol& radiance) const;
  /// The same by part. Thread-safe.
  bool Lookup(const trVector& point, const trVector& direction, Light& light) const;

 private:
  static constexpr int kHeights = 6, kSunAngles = 3, kElevations = 32, kTurns = 24;
  /// Sine of the lowest direction.
  static constexpr double kLowest = -0.03;

  size_t Index(int height, int sunAngle, int elevation, int turn) const {
    return ((static_cast<size_t>(height) * kSunAngles + sunAngle) * kElevations + elevation) * kTurns + turn;
  }
  struct Place;
  /// Where a ray lies among the entries. False where there are none.
  bool Find(const trVector& point, const trVector& direction, Place& place) const;
  /// An entry's share of rays; `shares` gets what each volume scatters of suns' light.
  trFCol Average(const std::vector<trAtmosShader*>& volumes, trRenderState& state,
                 trAtomicIntegrator& integrator, const trVector& origin, const trVector& up, int elevation,
                 int turn, Light* parts, double* shares) const;

  trVector centre_, sun_;
  double lowest_ = 0, highest_ = 0;        ///< distances from the centre, metres
  double leastSun_ = 0, greatestSun_ = 0;  ///< cosines between up and the sun
  std::vector<trFCol> table_;
  std::vector<Light> parts_;  ///< the same by part; empty where that isn't wanted
};

}  // namespace ovhost
