// What evaluation may ask of a render: the ray in hand, lights, nested shader calls, rays.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "core/shader.h"

class trIntegratorStore;
class trVoxelLightingSystem;
class trRenderState;
class trMaterial;

/// A view: a perspective camera with its raster. The world's compass is x east, y up, z north, so `right` is
/// `up` x `forward`: who looks north has east on the right.
struct trView {
  trVector eye, right{1, 0, 0}, up{0, 1, 0}, forward{0, 0, 1};
  double tanHalfHorizontal = 0.5, tanHalfVertical = 0.5;
  int width = 1, height = 1;
  double nearClip = 0.01;

  /// Where a point of the world lies on the screen: x 0 to 1 from left to right, y 0 to 1 from bottom to top,
  /// z metres along the view. Points behind the eye lie far off the screen.
  trVector WPos2SPos(const trVector& point) const {
    const trVector relative = point - eye;
    const double depth = Dot(relative, forward);
    if (!(depth > 1e-12)) return {-1e12, -1e12, depth};
    return {0.5 + 0.5 * Dot(relative, right) / (depth * tanHalfHorizontal),
            0.5 + 0.5 * Dot(relative, up) / (depth * tanHalfVertical), depth};
  }

  /// Angle that one pixel subtends at the picture's centre, radians.
  double PixelAngularSize() const { return 2.0 * tanHalfHorizontal / width; }
};

/// A light as shaders see it. Thread-safe.
class OV_API trLightState {
 public:
  virtual ~trLightState() = default;
  /// Unit vector towards the light, from `point` or for a light at infinity.
  virtual trVector Dir() const = 0;
  virtual trVector Dir(const trVector& point) const = 0;
  /// Where a shadow ray from `point` ends; `distance` gets its length, metres.
  virtual trVector TracePos(const trVector& point, double& distance) const = 0;
  virtual double AngularRadiusInRadians(const trVector& point) const = 0;
  virtual double SoftShadowAngularRadiusInRadians() const = 0;
  /// The light's colour at `point`, dimmed by what stands between: surfaces and volumes as the light's
  /// switches and the state's ray-traced-shadow flag say. `spot` is the extent over which the answer may be
  /// shared, metres. In units of the radiance of a white diffuse surface that faces the light.
  virtual trFCol Intensity(trRenderState& state, const trVector& point, const trVector& spot) const = 0;
  /// The same for an answer whose precision may be reduced to `precision` per channel.
  virtual trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                        const trVector& viewVector, const trFCol& precision) const = 0;
  virtual bool IsEnviroLight() const = 0;
  virtual bool DoShadowsFromAtmosphere() const = 0;
  virtual bool DoShadowsFromSurfaces() const = 0;
  virtual bool DoGlowInAtmosphere() const = 0;
  virtual bool DoSpecularHighlights() const = 0;
};

/// Where a ray met a triangle of a scene.
struct trTriHit {
  double distance = 1e300;  ///< in lengths of the ray's direction; going in, the farthest that counts
  long tri = 0;             ///< table index in its scene
  double u = 0, v = 0;      ///< barycentric: the point is (1 - u - v) a + u b + v c
  trVector normal;          ///< of the triangle's plane, by the right-hand rule, unit
};

/// A triangle made for one render, in world space.
struct trRenderTri {
  trVector point[3], normal[3], texture[3];
  const trMaterial* material = nullptr;
};

/// Takes triangles that are made for a render. One thread at a time.
class OV_API trTriSink {
 public:
  virtual ~trTriSink() = default;
  /// False when no more can be taken.
  virtual bool Take(const trRenderTri& tri) = 0;
};

/// What a renderer does for a render state. Implemented by the host; a test may bring its own. Thread-safe.
class OV_API trRenderServices {
 public:
  virtual ~trRenderServices() = default;
  virtual int NumLights() const = 0;
  virtual const trLightState* Light(int index) const = 0;
  /// Radiance along a ray; `quick` takes a coarser answer. The state comes back as it was: what the ray
  /// meets is shaded in a state of its own.
  virtual trFCol Trace(trRenderState& state, const trVector& origin, const trVector& direction,
                       bool quick) = 0;
  /// Opacity between two points, 0 to 1.
  virtual trFCol TraceOpacity(trRenderState& state, const trVector& from, const trVector& to) = 0;
  virtual trFCol DirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) = 0;
  virtual trFCol IndirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) = 0;
  /// Sky light at a point of the air: twice the mean radiance of the upper and of the lower half space, so
  /// that their sum is what a medium of phase function 1 receives in the units of Intensity.
  virtual void EnviroInAtmosphere(trRenderState& state, const trVector& point, const trVector& spot,
                                  trFCol& above, trFCol& below) = 0;
  /// The nearest of a scene's own triangles on a ray, before hit.distance; false leaves `hit` as it is.
  virtual bool IntersectTris(const trScene&, const trVector&, const trVector&, trTriHit&) { return false; }
  virtual double SpotSize(const trVector& point) const = 0;
  virtual bool IsPausingOrAborting() const = 0;
  virtual bool IsProgressiveRenderer() const { return false; }
  virtual bool IsDeferred() const { return true; }
  virtual int MaxRayDepth() const { return 1; }
  /// Radiance along a ray inside a surface, and the distance to where it leaves, metres.
  virtual trFCol TraceInside(trRenderState& state, const trVector& origin, const trVector& direction,
                             double& distance) {
    distance = 0;
    return Trace(state, origin, direction, false);
  }
  virtual trVoxelLightingSystem* VoxelLighting() { return nullptr; }
  /// Key of draws that shaders keep from one point to the next, so that they don't hang on which point came
  /// first; 0 leaves them to the stream in hand.
  virtual std::uint64_t KeyOfKeptDraws() const { return 0; }
  /// Whether rough surfaces give back what single scattering between their facets loses (trSharesOf).
  virtual bool CompensatesEnergy() const { return false; }
};

/// Services where nothing is rendered: no lights, nothing to hit, nothing between two points. Thread-safe.
class OV_API trNoRenderServices : public trRenderServices {
 public:
  int NumLights() const override { return 0; }
  const trLightState* Light(int) const override { return nullptr; }
  trFCol Trace(trRenderState&, const trVector&, const trVector&, bool) override { return {}; }
  trFCol TraceOpacity(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol DirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol IndirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  void EnviroInAtmosphere(trRenderState&, const trVector&, const trVector&, trFCol& above,
                          trFCol& below) override {
    above = below = trFCol();
  }
  double SpotSize(const trVector&) const override { return 0; }
  bool IsPausingOrAborting() const override { return false; }
};

/// A thread's ray and shader services. Per-thread state.
class OV_API trRenderState {
 public:
  trRenderState(trRenderServices& services, trShadingInterface& shading);
  ~trRenderState();
  trRenderState(const trRenderState&) = delete;
  trRenderState& operator=(const trRenderState&) = delete;

  trShadingInterface& Shading() { return shading_; }

  // --- Nested evaluation
  /// Runs `shader` at `point` (all the state's points; the normals too where `normal` isn't null) and returns
  /// the displaced point or the colour; the state comes back as it was. With `moveTexture` false Pt and Ptg
  /// stay.
  trVector CallDisplacement(trShader* shader, bool moveTexture, const trVector* point,
                            const trVector* normal);
  /// The same for a point on a plane: what the shader does along the normal, without the normal's own change.
  trVector CallDisplacementOnPlane(trShader* shader, bool moveTexture, const trVector* point,
                                   const trVector* normal);
  trFCol CallShaderCd(trShader* shader, bool moveTexture, const trVector* point, const trVector* normal);
  /// Clears colour, opacity and alpha results ahead of a nested call.
  void ResetShadeAttributesCOA() {
    shading_.ResetResults();
    outputs_ = Outputs();
  }

  // --- Light
  int NumLights() const { return services_.NumLights(); }
  const trLightState* Light(int index) const { return services_.Light(index); }
  trFCol TraceColor(const trVector& origin, const trVector& direction) {
    return services_.Trace(*this, origin, direction, false);
  }
  trFCol QuickTraceColor(const trVector& origin, const trVector& direction) {
    return services_.Trace(*this, origin, direction, true);
  }
  trFCol TraceOpacity(const trVector& from, const trVector& to) {
    return services_.TraceOpacity(*this, from, to);
  }
  trFCol DirectDiffuseLighting(const trVector& point, const trVector& normal) {
    return services_.DirectDiffuse(*this, point, normal);
  }
  trFCol IndirectDiffReflLighting(const trVector& point, const trVector& normal) {
    return services_.IndirectDiffuse(*this, point, normal);
  }
  trFCol IndirectDiffTransLighting(const trVector& point, const trVector& normal) {
    return services_.IndirectDiffuse(*this, point, -normal);
  }
  void EnviroIlluminationInAtmosphereAniso(const trVector& point, const trVector& spot, trFCol& above,
                                           trFCol& below) {
    services_.EnviroInAtmosphere(*this, point, spot, above, below);
  }
  /// Size of a micropolygon at a point of the world, metres: about a pixel there.
  double MicropolySpotSize(const trVector& point) const { return services_.SpotSize(point); }
  bool IsPausingOrAborting() const { return services_.IsPausingOrAborting(); }
  bool IsAProgressiveRenderer() const { return services_.IsProgressiveRenderer(); }
  trVoxelLightingSystem* VoxelLightingSystem() { return services_.VoxelLighting(); }

  /// Tints a diffuse colour, or an emission, as the particle in hand is tinted by whoever placed it; no
  /// particle, no tint.
  void ApplyTintToCd(trFCol& colour) const;
  void ApplyTintToSurfEmit(trFCol& colour) const;

  // --- Geometry
  /// The nearest of the scene's own triangles (its groups have theirs) that a ray meets, before hit.distance.
  /// The ray is in the space that the scene's transform leads to. 1 with `hit` filled, or 0.
  long IntersectRayTriAccelerator(const trScene& scene, const trVector& origin, const trVector& direction,
                                  trTriHit& hit) {
    return services_.IntersectTris(scene, origin, direction, hit) ? 1 : 0;
  }
  /// Gives the renderer one of a scene's triangles as it stands. 0 where nobody takes triangles, the scene
  /// has no such triangle, or no more can be taken.
  long PushTri(const trScene& scene, long tri);
  /// Gives the renderer a triangle; 0 as for PushTri, or where it isn't finite.
  long PushRenderTri(const trRenderTri& tri);
  /// Who takes triangles; null for nobody.
  void SetTriSink(trTriSink* sink) { triSink_ = sink; }

  // --- The ray in hand
  struct Ray {
    trVector origin, end;
    int depth = 1;              ///< 1 for camera rays
    bool wantsColour = true;    ///< false for rays that only ask how much comes through
    bool tracesShadows = true;  ///< whether light in volumes is shadowed by surfaces
    bool limitsEnviro = true;   ///< no sky light in volumes from depth 3 on
    bool optimisedLighting = false;
    bool modulatesLight = true;   ///< false: as if nothing took from lights by place, in volumes
    bool filtersSky = true;       ///< false: sky light in volumes as if there were those with symmetry alone
    double quality = 1.0;         ///< 0 to 1: how much of the budget this ray deserves
    double pixelAngularSize = 0;  ///< radians
    double pixelFactor = 1.0;
    /// How deep volumes ask for light within their own light, which they keep count of.
    int subdivision = 0;
    /// Luminance of what lies behind and before the volumes on this ray, as far as it is known.
    double luminanceBehind = 0;
    /// Light that volumes don't resolve is dimmed nearer to the eye than this, metres; 0 for nowhere.
    double nearFade = 0;

    double spread = 0;                      ///< half angle of the ray's cone, radians
    double importance = 1;                  ///< 0 to 1: the ray's share in the pixel
    bool specularOnSurfaces = true;         ///< whether surfaces met reflect at all
    bool highlights = true;                 ///< whether lights make highlights on surfaces met
    bool groupCastsShadows = true;          ///< of the geometry group met
    const trGeomGroup* group = nullptr;     ///< met; null where it isn't known
    trVector corners[3];                    ///< corners of the ray's footprint where it met the surface
    unsigned char flags[4] = {0, 0, 0, 0};  ///< the renderer's own marks of a surface; water clears them
    std::int32_t element = 0;  ///< of the surface met: its material's number in its scene; 0: none

    // What the surface in hand means by a ray that it traces, set for the call alone.
    const trLobe* lobe = nullptr;  ///< the ray stands for all of this lobe; null: for its direction only
    float weight = 1;              ///< largest channel of what its light will be multiplied by
    /// What fills the inside of the surface in hand, while it asks for the lights of points there.
    const trMedium* medium = nullptr;
  };
  Ray& CurrentRay() { return ray_; }
  const Ray& CurrentRay() const { return ray_; }

  /// Softens the shadow line of coarse meshes: `reference` is the normal whose lit side counts.
  struct Terminator {
    bool enabled = false;
    float amount = 0;
    trVector reference;
  };
  Terminator& TerminatorInfo() { return terminator_; }

  /// Light that shaders gather themselves, beside the reflection that they leave to the renderer: radiance
  /// towards the eye.
  struct Outputs {
    trFCol highlight, reflection, transmission;
    void Blend(const trFCol& weight, const Outputs& other, const trFCol& otherWeight) {
      highlight = highlight * weight + other.highlight * otherWeight;
      reflection = reflection * weight + other.reflection * otherWeight;
      transmission = transmission * weight + other.transmission * otherWeight;
    }
    trFCol Sum() const { return highlight + reflection + transmission; }
  };
  Outputs& ShadeOutputs() { return outputs_; }

  /// Whether a path-tracing integrator follows the lobes that surfaces append; otherwise surfaces trace rays.
  bool IsDeferred() const { return services_.IsDeferred(); }
  /// Greatest depth of rays that surfaces may trace.
  int MaxRayDepth() const { return services_.MaxRayDepth(); }
  /// Traces a ray inside a surface as TraceColor does, and tells the distance to where it left.
  trFCol TraceInside(const trVector& origin, const trVector& direction, double& distance) {
    return services_.TraceInside(*this, origin, direction, distance);
  }
  std::uint64_t KeyOfKeptDraws() const { return services_.KeyOfKeptDraws(); }
  bool CompensatesEnergy() const { return services_.CompensatesEnergy(); }
  /// Where trIntegratorLoan gets its integrators. They keep records of volumes, so a state goes before the
  /// volumes that its rays met.
  trIntegratorStore& Integrators();
  /// What `owner` keeps in this state from ray to ray, made by its default constructor at the first call; one
  /// type for one owner. Gone with the state.
  template <typename T>
  T& Scratch(const void* owner) {
    for (const OwnScratch& own : scratch_)
      if (own.owner == owner) return static_cast<Held<T>*>(own.held.get())->value;
    scratch_.push_back({owner, std::make_unique<Held<T>>()});
    return static_cast<Held<T>*>(scratch_.back().held.get())->value;
  }
  /// A unit draw of the render, both ends included.
  double Random() { return shading_.RandDouble(); }

 private:
  struct AnyHeld {
    virtual ~AnyHeld() = default;
  };
  template <typename T>
  struct Held : AnyHeld {
    T value{};
  };
  struct OwnScratch {
    const void* owner;
    std::unique_ptr<AnyHeld> held;
  };

  trRenderServices& services_;
  trShadingInterface& shading_;
  Ray ray_;
  trTriSink* triSink_ = nullptr;
  Terminator terminator_;
  Outputs outputs_;
  std::unique_ptr<trIntegratorStore> integrators_;
  std::vector<OwnScratch> scratch_;
};

/// Puts a state's ray back, on every way out.
class trRayGuard {
 public:
  explicit trRayGuard(trRenderState& state) : ray_(state.CurrentRay()), saved(ray_) {}
  ~trRayGuard() { ray_ = saved; }
  trRayGuard(const trRayGuard&) = delete;
  trRayGuard& operator=(const trRayGuard&) = delete;

 private:
  trRenderState::Ray& ray_;

 public:
  const trRenderState::Ray saved;
};

/// Settings of global illumination that shaders ask for.
struct trRenderGISettings {
  bool writesVoxels = false;
  bool ShouldWriteVoxels() const { return writesVoxels; }
};

/// How the steps of a cloud's march count, as the render node has it.
enum class trCloudSteps : int {
  kAsLayersTell = 0,  ///< all alike, wherever they lie: what projects without the setting look like
  kTrueLengths = 1    ///< each by its own length, so that marches converge to the integral
};

/// The argument of StartRender, FinishRender and PrepareAtmosphere. Main thread only.
class OV_API trRenderingInterface {
 public:
  trRenderingInterface(trRenderState& state, int numThreads, const trView* view,
                       trRenderContext::Context context)
      : state_(state), numThreads_(numThreads), view_(view), context_(context) {}
  trRenderState& RenderState() { return state_; }
  int NumThreads() const { return numThreads_; }
  const trView* PMainView() const { return view_; }
  const trRenderGISettings& GISettings() const { return gi_; }
  trRenderContext::Context RenderContext() const { return context_; }
  trCloudSteps CloudSteps() const { return cloudSteps_; }
  void SetCloudSteps(trCloudSteps steps) { cloudSteps_ = steps; }
  /// Work to do on render threads before the first pixel; a task returns false when it was stopped.
  void AddTaskToPrepass(std::function<bool(trRenderState&)> task) { prepass_.push_back(std::move(task)); }
  const std::vector<std::function<bool(trRenderState&)>>& PrepassTasks() const { return prepass_; }

 private:
  trRenderState& state_;
  int numThreads_;
  const trView* view_;
  trRenderContext::Context context_;
  trRenderGISettings gi_;
  trCloudSteps cloudSteps_ = trCloudSteps::kTrueLengths;
  std::vector<std::function<bool(trRenderState&)>> prepass_;
};
