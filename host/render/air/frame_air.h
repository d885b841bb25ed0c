// The air of a frame by part: volumes that are symmetric round one centre have tables, the others are
// marched, and what modulates light by place is counted on top of the tables.
#pragma once

#include <vector>

#include "host/render/air/air_march.h"
#include "host/render/air/air_shells.h"
#include "host/render/air/bounce_sky.h"
#include "host/render/air/sky_filter.h"
#include "host/render/air/sky_tables.h"

namespace ovhost {

/// Filled on the main thread; then thread-safe, each thread with its own state.
class OV_API FrameAir {
 public:
  /// The frame's volumes, all links resolved. Main thread only, before anything is asked.
  void SetVolumes(std::vector<trAtmosShader*> volumes);
  /// Works out all tables, by the services' own lights. `places` are points of surfaces that bounces may
  /// start near. Main thread only, inside the arena whose workers are to be used.
  void BuildTables(trRenderServices& services, const trVector& eye, bool hasSkyLight,
                   const SkyTables::GroundQuery& ground, const std::vector<trVector>& places);

  const std::vector<trAtmosShader*>& Volumes() const { return volumes_; }
  /// Those whose matter light can be followed through, and all others.
  const std::vector<trAtmosShader*>& WithMatter() const { return withMatter_; }
  const std::vector<trAtmosShader*>& WithoutMatter() const { return withoutMatter_; }
  /// Away from the centre of the volumes with tables; +y where there are none.
  trVector Up(const trVector& point) const { return tables_.Up(point); }
  /// What the volumes with tables let through of a light.
  trFCol ThroughTables(const trLightState& light, const trVector& point) const {
    return tables_.IsBuilt()
               ? tables_.Transmittance(point, light.Dir(point), light.AngularRadiusInRadians(point))
               : trFCol(1.0f);
  }
  /// What all volumes let through of a light on its way to a point of the world. Draws hang on the point
  /// alone.
  trFCol Towards(trRenderState& state, const trLightState& light, const trVector& point,
                 const trVector& spot) const;
  /// The same at a surface, whatever ray is in hand.
  trFCol TowardsSurface(trRenderState& state, const trLightState& light, const trVector& point) const;
  /// Twice the mean radiance that comes to a point of the world from above and from below. Changes by place
  /// are blended, or else drawn from near the point, by the point alone.
  void SkyLight(trRenderState& state, const trVector& point, bool isBlended, trFCol& above,
                trFCol& below) const;
  /// The same of all but volumes whose matter is followed.
  trFCol PastMatter(trRenderState& state, const trLightState& light, const trVector& point) const;
  /// Of whom a ray into the sky is.
  enum class Sight {
    kBounce,      ///< of a diffuse bounce
    kBackground,  ///< of a volume that gathers light: what is seen has sky light from tables alone
    kPastMatter   ///< of who follows light through matter: volumes that tell theirs don't show
  };
  /// What a ray that stands for many sees that meets nothing; false where no table tells.
  bool OpenSky(trRenderState& state, const trVector& origin, const trVector& direction, Sight sight,
               trFCol& radiance) const;

 private:
  /// A volume with tables whose light is modulated.
  struct Modulated {
    trAtmosShader* volume;
    double share;  ///< of what all volumes with tables scatter of suns' light
  };

  trFCol ThroughMarched(trRenderState& state, const std::vector<trAtmosShader*>& marched,
                        const trLightState& light, const trVector& point, const trVector& spot) const;
  /// What of a sun still counts for air at a point that has its light from tables.
  trFCol SunLeft(trRenderState& state, const trVector& point) const;
  /// Puts the volumes without tables before, into, and behind the air of a table along a ray.
  void AddMarched(trRenderState& state, const std::vector<trAtmosShader*>& volumes, const AirRay& ray,
                  double meanDistance, trFCol& radiance) const;

  std::vector<trAtmosShader*> volumes_, symmetric_, marched_;
  std::vector<trAtmosShader*> withMatter_, withoutMatter_;
  std::vector<trAtmosShader*> plainMarched_;  ///< without tables and without matter
  std::vector<Modulated> modulated_;
  double unmodulated_ = 1;  ///< the other volumes' share
  trVolumeShape shell_;     ///< of the symmetric ones
  AirShells marchedShells_{{}};
  SkyTables tables_;
  BounceSky bounceSky_;
  SkyFilter filter_;
  const trLightState* sun_ = nullptr;
};

}  // namespace ovhost
