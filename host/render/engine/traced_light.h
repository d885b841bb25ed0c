// Surfaces that trace their own rays, for the standard engine: shading networks run undeferred, lights as
// they see them, and what their rays meet.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "host/render/engine/indirect_light.h"
#include "host/render/shade/camera_sample.h"
#include "host/render/shade/lobes.h"
#include "host/render/shade/piece_shading.h"

namespace ovhost {

struct TraceSettings {
  int maxDepth = 9;               ///< of rays; the camera's has depth 1
  double leastImportance = 0.05;  ///< rays that count less than this are traced by chance

  bool operator==(const TraceSettings&) const = default;
};

/// Answers the rays of surfaces. Each ray is shaded in a state of its own, so that surfaces may see surfaces.
/// Per-thread state.
class OV_API TracedLight final : public trRenderServices {
 public:
  TracedLight(LitScene& scene, const TraceSettings& settings, IndirectLight& indirect,
              PathCounters& counters);

  /// A camera ray that met something, and how much of it is left there.
  struct Start {
    PixelSampler sampler;
    std::uint64_t random = 0;
    trVector origin, direction;  ///< relative to the eye
    SurfaceHit hit;
    trFCol throughput{1.0f};
  };
  /// Adds to `result` what the surface sends to the eye, and what shows through it.
  void Follow(const Start& start, CameraSample& result);

  // trRenderServices
  int NumLights() const override { return static_cast<int>(lights_.size()) + (sky_ ? 1 : 0); }
  const trLightState* Light(int index) const override {
    const auto i = static_cast<size_t>(index);
    return i < lights_.size() ? static_cast<const trLightState*>(&lights_[i]) : &*sky_;
  }
  trFCol Trace(trRenderState& state, const trVector& origin, const trVector& direction, bool quick) override;
  trFCol TraceInside(trRenderState& state, const trVector& origin, const trVector& direction,
                     double& distance) override;
  trFCol TraceOpacity(trRenderState& state, const trVector& from, const trVector& to) override {
    return scene_.TraceOpacity(state, from, to);
  }
  trFCol DirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) override {
    return scene_.DirectDiffuse(state, point, normal);
  }
  trFCol IndirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) override {
    return scene_.IndirectDiffuse(state, point, normal);
  }
  void EnviroInAtmosphere(trRenderState& state, const trVector& point, const trVector& spot, trFCol& above,
                          trFCol& below) override {
    scene_.EnviroInAtmosphere(state, point, spot, above, below);
  }
  bool IntersectTris(const trScene& scene, const trVector& origin, const trVector& direction,
                     trTriHit& hit) override {
    return scene_.IntersectTris(scene, origin, direction, hit);
  }
  double SpotSize(const trVector& point) const override { return scene_.SpotSize(point); }
  bool IsPausingOrAborting() const override { return scene_.IsPausingOrAborting(); }
  bool IsDeferred() const override { return false; }
  int MaxRayDepth() const override { return settings_.maxDepth; }
  trVoxelLightingSystem* VoxelLighting() override { return scene_.VoxelLighting(); }
  std::uint64_t KeyOfKeptDraws() const override { return scene_.Frame().seed + 1; }
  bool CompensatesEnergy() const override { return scene_.CompensatesEnergy(); }

 private:
  /// A sun as the surface in hand sees it: one point of its disc a ray, past whatever is in the way.
  class Sun final : public trLightState {
   public:
    Sun(TracedLight& owner, int index) : owner_(owner), index_(index) {}
    trVector Dir() const override { return Source().Dir(); }
    trVector Dir(const trVector& point) const override { return Source().Dir(point); }
    trVector TracePos(const trVector& point, double& distance) const override {
      return Source().TracePos(point, distance);
    }
    double AngularRadiusInRadians(const trVector& point) const override {
      return Source().AngularRadiusInRadians(point);
    }
    double SoftShadowAngularRadiusInRadians() const override {
      return Source().SoftShadowAngularRadiusInRadians();
    }
    trFCol Intensity(trRenderState& state, const trVector& point, const trVector&) const override {
      return owner_.SunAt(index_, point, state.CurrentRay());
    }
    trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                  const trVector&, const trFCol&) const override {
      return Intensity(state, point, spot);
    }
    bool IsEnviroLight() const override { return false; }
    bool DoShadowsFromAtmosphere() const override { return Source().DoShadowsFromAtmosphere(); }
    bool DoShadowsFromSurfaces() const override { return Source().DoShadowsFromSurfaces(); }
    bool DoGlowInAtmosphere() const override { return Source().DoGlowInAtmosphere(); }
    bool DoSpecularHighlights() const override { return Source().DoSpecularHighlights(); }

   private:
    const SunLight& Source() const { return *owner_.scene_.Suns()[static_cast<size_t>(index_)]; }
    TracedLight& owner_;
    int index_;
  };

  /// All light but the suns', for points inside of surfaces: mirrors and matt surfaces see it by rays.
  class Sky final : public trLightState {
   public:
    explicit Sky(TracedLight& owner) : owner_(owner) {}
    trVector Dir() const override { return {0, 1, 0}; }
    trVector Dir(const trVector& point) const override { return owner_.scene_.Air().Up(point); }
    trVector TracePos(const trVector& point, double& distance) const override {
      distance = owner_.scene_.FarDistance();
      return point + Dir(point) * distance;
    }
    double AngularRadiusInRadians(const trVector&) const override { return 1.5707963; }
    double SoftShadowAngularRadiusInRadians() const override { return 1.5707963; }
    trFCol Intensity(trRenderState& state, const trVector& point, const trVector&) const override {
      return owner_.SurroundingsAt(point, state.CurrentRay());
    }
    trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                  const trVector&, const trFCol&) const override {
      return Intensity(state, point, spot);
    }
    bool IsEnviroLight() const override { return true; }
    bool DoShadowsFromAtmosphere() const override { return false; }
    bool DoShadowsFromSurfaces() const override { return false; }
    bool DoGlowInAtmosphere() const override { return false; }
    bool DoSpecularHighlights() const override { return false; }

   private:
    TracedLight& owner_;
  };

  /// A ray on its way.
  struct Ray {
    trVector origin, direction;  ///< relative to the eye
    double nearest = 0;          ///< where it starts to count, metres
    int depth = 1;
    double spread = 0;      ///< half angle of its cone, radians
    double footprint = 0;   ///< at its origin, metres
    double importance = 1;  ///< share in the pixel
    RayKind kind = kCameraRays;
    bool isQuick = false;                 ///< what it meets traces no further
    const SurfacePart* inside = nullptr;  ///< the solid it goes through, or null for the air
  };
  /// A surface in hand. There is one for each depth.
  struct Level {
    Level(const LitScene& scene, trRenderServices& services) : shading(scene, services) {}
    struct SunLook {
      trVector direction;
      std::optional<trFCol> light[2];  ///< on the face's side and beyond it
    };
    ShadingContext shading;
    Ray ray;
    SurfaceHit hit;
    SurfacePoint point;
    std::vector<SunLook> suns;
    std::optional<trFCol> surroundings;  ///< that fall on the surface from outside
    // What the network left
    trFCol cover, diffuse, translucency;
    trFCol emission, highlights, reflected, transmitted;  ///< radiance

    /// What the ray goes through isn't of this surface: it lies inside of another.
    bool IsContents() const { return ray.inside && ray.inside != hit.part; }
  };
  /// What a surface sends back along a ray.
  struct Outgoing {
    LightLayers light;
    trFCol direct;  ///< the part that comes from it and from suns at once
  };

  LightLayers Radiance(Ray ray, double& distance);
  /// The next surface, and the light before it, which `camera` may be told of. False where there is none.
  bool Travel(const Ray& ray, SurfaceHit& hit, trFCol& left, LightLayers& sum, CameraSample* camera);
  /// The surfaces from `hit` on, as far as they let light pass beside them.
  void Surfaces(Ray ray, SurfaceHit hit, trFCol left, LightLayers& sum, CameraSample* camera);
  Level& Shade(const Ray& ray, const SurfaceHit& hit);
  /// Runs the surface's network, and with it the rays that it traces.
  void RunShaders(Level& level);
  Outgoing OutgoingOf(Level& level);
  static void FillLayers(const Level& level, CameraSample& camera);

  /// The ray that the surface in hand means. False where it isn't worth tracing; `scale` makes up for what
  /// was left to chance.
  bool MakeRay(trRenderState& state, const trVector& origin, const trVector& direction, Ray& ray,
               trFCol& scale);
  trFCol SunAt(int sun, const trVector& point, const trRenderState::Ray& asked);
  trFCol SurroundingsAt(const trVector& point, const trRenderState::Ray& asked);
  trFCol SunOn(Level& level, int sun, bool isOnFace, bool isShadowed);
  /// Past the border of the solid that `border` bounds, as if light weren't bent there, and what lies beyond.
  /// `medium` is what scatters on the way; null for a clear inside.
  trFCol ThroughBorder(const SurfacePart* border, const trVector& origin, const trVector& direction,
                       double nearest, const trMedium* medium);
  trAtomicIntegrator::Result Air(const Ray& ray, double distance, AirRecord* record);

  LitScene& scene_;
  TraceSettings settings_;
  IndirectLight& indirect_;
  PathCounters& counters_;
  std::vector<Sun> lights_;
  std::optional<Sky> sky_;
  ShadowRays shadows_;
  ShadingContext plain_;  ///< deferred, for pieces of diffuse surfaces
  PieceShading pieces_;
  trShadingInterface airShading_;
  trRenderState air_;
  LobeSet lobes_;
  AirRecord airRecord_;
  std::vector<std::unique_ptr<Level>> levels_;  ///< by depth, made when first used
  Level* current_ = nullptr;
  PixelSampler sampler_;
  std::uint64_t random_ = 0;
  std::uint32_t numShaded_ = 0;  ///< of the path in hand
};

}  // namespace ovhost
