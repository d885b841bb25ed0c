// Light in the air, tabulated: what of each sun comes through the volumes, and how much sky light a point
// receives.
//
// Both rest on symmetry: round one centre every volume is the same in every direction, so transmittance
// towards a sun is a function of height and of the sun's angle alone (Bruneton and Neyret, Precomputed
// Atmospheric Scattering, 2008, whose mapping of the two is used), and sky light one of height and of the
// direction of the ground's up.
#pragma once

#include <functional>
#include <vector>

#include "core/atmosphere.h"

namespace ovhost {

class OV_API SkyTables {
 public:
  /// Tabulates transmittance of volumes that are symmetric round the centre of the shell that holds them all.
  /// Main thread only, inside the arena whose workers are to be used.
  void BuildTransmittance(const std::vector<trAtmosShader*>& volumes, const trVolumeShape& shell,
                          trRenderServices& services);
  /// Tabulates sky light without what modulates it, in two rounds: the second sees the first's scattered
  /// light. Needs the services' lights. `groundRadiance` tells the radiance that leaves the ground, or black
  /// for the open sky, along a ray; its distance in the last argument.
  using GroundQuery =
      std::function<trFCol(const trVector& origin, const trVector& direction, double& distance)>;
  void BuildEnviro(const std::vector<trAtmosShader*>& volumes, trRenderServices& services,
                   const trVector& sunDirection, bool severalSuns, const GroundQuery& ground);

  bool IsBuilt() const { return !transmittance_.empty(); }
  /// What of a light in `direction`, of angular radius `radius`, reaches `point`; the ball inside the volumes
  /// blocks it. Only once built. Thread-safe.
  trFCol Transmittance(const trVector& point, const trVector& direction, double radius) const;
  /// Away from the volumes' centre; +y where there is none.
  trVector Up(const trVector& point) const {
    return IsBuilt() ? Normalised(point - centre_) : trVector(0, 1, 0);
  }
  /// Twice the mean sky radiance from above and from below. Thread-safe.
  void Enviro(const trVector& point, trFCol& above, trFCol& below) const;

 private:
  static constexpr int kHeights = 48, kAngles = 192;
  static constexpr int kSkyHeights = 12, kSkyAngles = 48, kSkyTurns = 16;

  trVector centre_;
  double inner_ = 0, outer_ = 0;  ///< radii, metres
  float horizonLength_ = 0;       ///< longest way from the inner ball's surface to the outer's, metres
  float invHorizon_ = 0;
  std::vector<trFCol> transmittance_;
  trVector sunAxis_{0, 1, 0}, sideAxis_{1, 0, 0};
  int skyTurns_ = 1;
  std::vector<trFCol> above_, below_;
};

}  // namespace ovhost
