// Everything a frame is rendered from: scenes, diced meshes, lights, volumes, tables; and the services
// shaders ask of it.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "core/atmosphere.h"
#include "core/project.h"
#include "core/scene_maker.h"
#include "host/render/accel.h"
#include "host/render/assembly.h"
#include "host/render/bounce_sky.h"
#include "host/render/sky_tables.h"
#include "host/render/tri_rays.h"

class trSunlightNode;

namespace ovhost {

class World;

/// A sun: parallel light from a disc.
class SunLight final : public trLightState {
 public:
  SunLight(const World& world, const trSunlightNode& node);

  trVector Dir() const override { return direction_; }
  trVector Dir(const trVector&) const override { return direction_; }
  trVector TracePos(const trVector& point, double& distance) const override;
  double AngularRadiusInRadians(const trVector&) const override { return angularRadius_; }
  double SoftShadowAngularRadiusInRadians() const override { return angularRadius_; }
  trFCol Intensity(trRenderState& state, const trVector& point, const trVector& spot) const override;
  trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                const trVector& viewVector, const trFCol& precision) const override;
  bool IsEnviroLight() const override { return false; }
  bool DoShadowsFromAtmosphere() const override { return shadows_; }
  bool DoShadowsFromSurfaces() const override { return shadows_; }
  bool DoGlowInAtmosphere() const override { return glow_; }
  bool DoSpecularHighlights() const override { return true; }

  const trFCol& Radiance() const { return radiance_; }
  bool HasVisibleDisc() const { return visibleDisc_; }
  /// A direction to a point of the disc, from two draws of 0 to 1.
  trVector SampleDisc(const tr2Vector& draw) const;
  /// Density of SampleDisc per solid angle, for directions in the disc.
  double DiscPdf(const trVector& direction) const;
  bool IsInDisc(const trVector& direction) const {
    return Dot(direction, direction_) >= std::cos(angularRadius_);
  }
  /// Radiance of the disc in a direction, of which the light's is a share: what makes its irradiance.
  double DiscBrightness(const trVector& direction) const { return kPi * DiscPdf(direction); }
  /// What of the light the volumes let through to `point`.
  trFCol ThroughVolumes(trRenderState& state, const trVector& point) const;

 private:
  static constexpr double kPi = 3.14159265358979;
  const World& world_;
  trVector direction_, sideA_, sideB_;
  trFCol radiance_;
  double angularRadius_;
  bool shadows_, glow_, visibleDisc_;
};

struct WorldSettings {
  trView view;
  double edgePixels = 1.4;
  double frame = 1;
  std::uint64_t seed = 0;
  std::uint64_t memoryBytes = 0;
  std::uint64_t pictureVertices = 0;  ///< that a surface may have for the picture's size; 0: no limit
  int threads = 1;
};

/// Built on one thread inside the render's arena; then read by all.
class OV_API World final : public trRenderServices {
 public:
  World(juProject& project, const WorldSettings& settings, const std::atomic<bool>& stop);
  ~World() override;

  /// Makes the scenes, starts the shaders, dices, builds. False with errors reported, or when stopped.
  bool Build();

  // trRenderServices
  int NumLights() const override { return static_cast<int>(lights_.size()); }
  const trLightState* Light(int index) const override { return lights_[index].get(); }
  trFCol Trace(trRenderState& state, const trVector& origin, const trVector& direction, bool quick) override;
  trFCol TraceOpacity(trRenderState& state, const trVector& from, const trVector& to) override;
  trFCol DirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) override;
  trFCol IndirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) override;
  void EnviroInAtmosphere(trRenderState& state, const trVector& point, const trVector& spot, trFCol& above,
                          trFCol& below) override;
  bool IntersectTris(const trScene& scene, const trVector& origin, const trVector& direction,
                     trTriHit& hit) override;
  double SpotSize(const trVector& point) const override;
  bool IsPausingOrAborting() const override { return stop_.load(std::memory_order_relaxed); }

  const WorldSettings& Settings() const { return settings_; }
  const trView& View() const { return settings_.view; }
  const Accel& Rays() const { return *accel_; }
  const SkyTables& Sky() const { return sky_; }
  const BounceSky& SkyOfBounces() const { return bounceSky_; }
  const std::vector<trAtmosShader*>& Volumes() const { return volumes_; }
  const std::vector<std::unique_ptr<SunLight>>& Suns() const { return lights_; }
  const trFCol& SkyOnSurfaces() const { return skyOnSurfaces_; }
  const DiceStatistics& Dicing() const { return dicing_; }
  const Assembly& Parts() const { return parts_; }
  /// The object that the eye is inside of, below its displaced surface, or null.
  const trBase* ObjectAroundEye() const;
  /// Whether there is anything that shadow rays may get through.
  bool HasSeeThrough() const { return hasSeeThrough_; }
  double DiceSeconds() const { return diceSeconds_; }
  /// Where a ray that hits nothing ends: past every volume.
  double FarDistance() const { return 1e9; }

 private:
  bool MakeScenes();
  void CollectLights();
  void CollectVolumes(const trScene& scene);
  bool BuildParts();
  bool DiceParts();
  void WarnOfLongEdges(const DiceSettings& dice) const;
  bool DiceAssembly(Assembly& parts, const DiceSettings& settings);
  void BuildSkies();
  void LookAtParts();
  bool StartShaders();
  void FinishShaders();

  juProject& project_;
  WorldSettings settings_;
  const std::atomic<bool>& stop_;
  struct MadeScene {
    std::unique_ptr<trScene> scene;
    SceneSource source;
  };
  std::vector<MadeScene> scenes_;
  Assembly parts_;  ///< relative to the eye
  SharedParts shared_;
  std::vector<std::unique_ptr<SunLight>> lights_;
  std::vector<trAtmosShader*> volumes_;
  std::vector<trShader*> started_;
  std::unique_ptr<Accel> accel_;
  TriRays triRays_;
  SkyTables sky_;
  BounceSky bounceSky_;
  trFCol skyOnSurfaces_, skyInAtmosphere_;
  DiceStatistics dicing_;
  double diceSeconds_ = 0;
  bool hasSeeThrough_ = false;
};

}  // namespace ovhost
