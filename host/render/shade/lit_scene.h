// What shading asks of the frame that is rendered: rays, suns, volumes, and light in the air.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "core/atmosphere.h"
#include "host/render/air/frame_air.h"
#include "host/render/shade/background_light.h"
#include "host/render/shade/sun_light.h"
#include "host/render/trace/accel.h"
#include "host/render/trace/tri_rays.h"

namespace ovhost {

/// How a frame is looked at.
struct FrameSettings {
  trView view;
  double edgePixels = 1.4;  ///< wanted length of a micropolygon's edge on screen
  double frame = 1;
  std::uint64_t seed = 0;
  bool compensatesEnergy = false;  ///< of rough surfaces
};

/// The services that shaders ask of a render, and what engines ask beyond them. Filled by who builds it; then
/// read by all threads.
class OV_API LitScene : public trRenderServices {
 public:
  LitScene(const FrameSettings& settings, const std::atomic<bool>& stop)
      : frame_(settings), stop_(stop), accel_(std::make_unique<Accel>(&stop)) {}

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
  bool CompensatesEnergy() const override { return frame_.compensatesEnergy; }
  trVoxelLightingSystem* VoxelLighting() override { return &background_; }

  const FrameSettings& Frame() const { return frame_; }
  const trView& View() const { return frame_.view; }
  const Accel& Rays() const { return *accel_; }
  const FrameAir& Air() const { return air_; }
  BackgroundLight& Background() { return background_; }
  const std::vector<trAtmosShader*>& Volumes() const { return air_.Volumes(); }
  const std::vector<std::unique_ptr<SunLight>>& Suns() const { return lights_; }
  const trFCol& SkyOnSurfaces() const { return skyOnSurfaces_; }
  /// Whether there is anything that shadow rays may get through.
  bool HasSeeThrough() const { return hasSeeThrough_; }
  /// The air along a ray of an engine, which becomes the state's ray in hand. `samples` counts.
  trAtomicIntegrator::Result AirAlong(trRenderState& state, const trVector& origin, const trVector& direction,
                                      double distance, int depth, bool isSharp, std::uint64_t& samples,
                                      AirRecord* record = nullptr) const {
    return AirAlong(state, Volumes(), origin, direction, distance, depth, isSharp, samples, record);
  }
  /// The same of some of the volumes.
  trAtomicIntegrator::Result AirAlong(trRenderState& state, const std::vector<trAtmosShader*>& volumes,
                                      const trVector& origin, const trVector& direction, double distance,
                                      int depth, bool isSharp, std::uint64_t& samples,
                                      AirRecord* record = nullptr) const {
    return MarchAir(state, volumes, {origin, direction, distance, depth, isSharp, View().PixelAngularSize()},
                    samples, record);
  }
  /// Where a ray that hits nothing ends: past every volume.
  double FarDistance() const { return 1e9; }

 protected:
  /// What the ground sends up into the air along a ray: sunlit Lambert ground of middling albedo. `distance`
  /// bounds the ray, and becomes where it ends; black for the open sky.
  trFCol GroundRadiance(const trVector& origin, const trVector& direction, double& distance) const;

  FrameSettings frame_;
  const std::atomic<bool>& stop_;
  std::unique_ptr<Accel> accel_;
  std::vector<std::unique_ptr<SunLight>> lights_;
  trFCol skyOnSurfaces_, skyInAtmosphere_;
  FrameAir air_;
  bool hasSeeThrough_ = false;

 private:
  TriRays triRays_;
  BackgroundLight background_{*this};
};

/// Adds what a camera ray that meets nothing sees of suns' discs.
inline void AddVisibleDiscs(const LitScene& scene, const trVector& direction, const trFCol& throughput,
                            trFCol& sky) {
  for (const auto& sun : scene.Suns())
    if (sun->HasVisibleDisc() && sun->IsInDisc(direction))
      sky += throughput * sun->Radiance() * static_cast<float>(sun->DiscBrightness(direction));
}

}  // namespace ovhost
