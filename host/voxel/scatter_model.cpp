// Light that a volume scatters more than once, found by paths.
//
// The nodes of a grid, at the corners of blocks of two by two by two cells of the volume, hold the mean
// radiance that arrives there by scattering, and its flux. A node's value is the mean of a few paths that go
// backwards from it: along a path's free flights, the light that a collision scatters into the path is
// counted. After some scatterings the direction is forgotten, and the rest of the path is what diffusion
// tells. Where light changes over a free path, it is interpolated between nodes less what an endless even
// volume has below its surface (HalfSpace).
#include <algorithm>
#include <cmath>

#include "host/voxel/diffuse_field.h"
#include "host/voxel/half_space.h"
#include "host/voxel/optical_path.h"
#include "host/voxel/scatter_phase.h"
#include "host/voxel/voxel_cache-inl.h"

using namespace ovhost::voxel;

namespace {

constexpr int kPathsPerNode = 48;
/// One path in so many sets out towards the main light's glow; and as many go on to there.
constexpr int kLitEach = 4;
constexpr double kLit = 1.0 / kLitEach;
/// Scatterings that a path follows.
constexpr int kScatterings = 3;
/// Quality below which a secondary ray is blurred.
constexpr double kBlurred = 0.01;
constexpr double kDeepest = 14;  ///< optical depth past which a light counts for nothing
constexpr double kPi = 3.14159265358979323846;

/// Mean radiance and flux (the mean of radiance times direction of travel, of the channels' mean).
struct Light {
  trFCol mean;
  float flux[3] = {0, 0, 0};
  void Add(const trFCol& radiance, const trVector& travel) {
    mean += radiance;
    const float grey = (radiance.r + radiance.g + radiance.b) / 3;
    for (int axis = 0; axis < 3; ++axis) flux[axis] += grey * static_cast<float>(travel[axis]);
  }
};

struct NodeLight {
  Light direct, enviro;
};

/// A projector's cube, larger by half a node all round: centres of the nodes' cells lie on corners.
class NodeProjector : public trVoxelProjector {
 public:
  void Init(const trVoxelProjector* projector, const int cells[3]) {
    projector_ = projector;
    for (int axis = 0; axis < 3; ++axis) cells_[axis] = cells[axis];
  }
  void MapWorldToLocal(const trVector& world, trVector& local) const override {
    projector_->MapWorldToLocal(world, local);
    for (int axis = 0; axis < 3; ++axis)
      local[axis] = (local[axis] * cells_[axis] + 0.5) / (cells_[axis] + 1.0);
  }
  void MapLocalToWorld(const trVector& local, trVector& world) const override {
    trVector inner;
    for (int axis = 0; axis < 3; ++axis)
      inner[axis] = (local[axis] * (cells_[axis] + 1.0) - 0.5) / cells_[axis];
    projector_->MapLocalToWorld(inner, world);
  }
  trTransform<double> GetTransformLocalToWorld() const override {
    return projector_->GetTransformLocalToWorld() *
           trTranslate({-0.5 / cells_[0], -0.5 / cells_[1], -0.5 / cells_[2]}) *
           trScale(1 + 1.0 / cells_[0], 1 + 1.0 / cells_[1], 1 + 1.0 / cells_[2]);
  }
  bool IsLinear() const override { return projector_->IsLinear(); }
  trVector ScalingIfAffine() const override { return Grown(projector_->ScalingIfAffine()); }
  trVector EstimatedScaling_WrongIfRotated(const trVector& world) const override {
    return Grown(projector_->EstimatedScaling_WrongIfRotated(world));
  }

  const trVoxelProjector& Inner() const { return *projector_; }

 private:
  trVector Grown(const trVector& size) const {
    return {size.x * (1 + 1.0 / cells_[0]), size.y * (1 + 1.0 / cells_[1]), size.z * (1 + 1.0 / cells_[2])};
  }
  const trVoxelProjector* projector_ = nullptr;
  int cells_[3] = {1, 1, 1};
};

/// Puts a state's draws back, on every way out.
class DrawsGuard {
 public:
  DrawsGuard(trRenderState& state, std::uint64_t key) : stream_(state.Shading().Random()), saved_(stream_) {
    stream_ = {key, 0};
  }
  ~DrawsGuard() { stream_ = saved_; }
  DrawsGuard(const DrawsGuard&) = delete;
  DrawsGuard& operator=(const DrawsGuard&) = delete;

 private:
  trRandomStream& stream_;
  const trRandomStream saved_;
};

trVector SphereDirection(double u, double v) { return TurnedFrom({0, 0, 1}, 1.0 - 2.0 * u, 2.0 * kPi * v); }

}  // namespace

struct trVoxelScatterModelC::Impl {
  trVoxelScatterMedium* medium = nullptr;
  trVoxelCache<trFCol>* lighting = nullptr;
  trAnisoVoxelCache<trFCol>* aniso = nullptr;
  NodeProjector projector;
  trVoxelCache<NodeLight> nodes;
  PhaseTable phase;
  HalfSpace halfSpace;
  trFCol albedo;
  trVector toLight{0, 1, 0};
  int depthLimit = 0;
  DiffuseField deep;
  std::atomic<bool> isDeepSolved{false};
  std::mutex deepLock;

  /// What the medium can tell, found at the first lookup.
  std::once_flag asked;
  bool tellsLight = false, tellsBackground = false;
  struct Side {
    Impl* impl;
    int direction;
  } sides[6];

  void Ask(trRenderState& state, const trVector& point);
  trFCol LightAt(trRenderState& state, const trVector& point);
  trFCol Background(trRenderState& state, const trVector& point, const trVector& direction);
  trFCol MeanBackground(trRenderState& state, const trVector& point);
  trFCol SideAt(trRenderState& state, const trVector& point, int side);
  bool SolveDeep(trRenderState& state);
  bool FromField(trRenderState& state, const trVector& point, trFCol& direct, trFCol& enviro);
  void AddBeam(const trVector& world, Light& light, float sign) const;
  trFCol TowardsEye(const Light& light, const trVector& view) const;
  trFCol Sunlight(trRenderState& state, const trVector& point, trFCol* transmittance = nullptr);
  trVector TurnedOrLit(const trVector* before, double u, double v, float& weight) const;
  void Path(trRenderState& state, const trVector& origin, const trVector& direction, float share,
            double firstFlight, trRandomStream& draws, NodeLight& sum);

  static bool FillNode(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const trVector& world,
                       unsigned seed, NodeLight& value);
  static bool FillLight(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const trVector& world,
                        unsigned seed, trFCol& value);
  static bool FillSide(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const trVector& world,
                       unsigned seed, trFCol& value);
};

void trVoxelScatterModelC::Impl::Ask(trRenderState& state, const trVector& point) {
  std::call_once(asked, [&] {
    const DrawsGuard guard(state, 1);
    trFCol light;
    tellsLight = medium->LightOutside(state, point, light);
    tellsBackground = medium->BackgroundOutside(state, point, {0, 1, 0}, light);
  });
}

bool trVoxelScatterModelC::Impl::FillLight(void* owner, trRenderState& state, const trVoxelBuffer&,
                                           const trVector& world, unsigned seed, trFCol& value) {
  if (state.IsPausingOrAborting()) return false;
  Impl& impl = *static_cast<Impl*>(owner);
  const DrawsGuard guard(state, seed);
  if (impl.tellsLight) return impl.medium->LightOutside(state, world, value);
  value = impl.medium->DirectLight(state, world);
  return true;
}

/// One of the six sides: the background's mean over the half space that the side faces, weighted by the
/// square of the cosine, so that the squares of a direction's components mix the sides to its radiance
/// and the mean over all directions is kept (the ambient cube: McTaggart 2004).
bool trVoxelScatterModelC::Impl::FillSide(void* owner, trRenderState& state, const trVoxelBuffer&,
                                          const trVector& world, unsigned seed, trFCol& value) {
  if (state.IsPausingOrAborting()) return false;
  const Side& side = *static_cast<const Side*>(owner);
  Impl& impl = *side.impl;
  const DrawsGuard guard(state, seed * 6ull + static_cast<unsigned>(side.direction));
  if (!impl.tellsBackground) {
    value = impl.medium->AverageBackground(state, world);
    return true;
  }
  trVector axis;
  axis[side.direction / 2] = side.direction % 2 ? 1 : -1;
  constexpr int kRows = 2;
  trFCol sum;
  for (int i = 0; i < kRows * kRows; ++i) {
    const double u = (i / kRows + state.Random()) / kRows, v = (i % kRows + state.Random()) / kRows;
    trFCol radiance;
    impl.medium->BackgroundOutside(state, world, TurnedFrom(axis, std::cbrt(u), 2 * kPi * v), radiance);
    sum += radiance;
  }
  value = sum * (1.0f / (kRows * kRows));
  return true;
}

trFCol trVoxelScatterModelC::Impl::LightAt(trRenderState& state, const trVector& point) {
  trFCol light;
  trVector voxel;
  lighting->MapWorldToVoxel(point, voxel);
  lighting->LookupLinear(light, voxel, 1, FillLight, this, state);
  return light;
}

trFCol trVoxelScatterModelC::Impl::SideAt(trRenderState& state, const trVector& point, int side) {
  trVoxelCache<trFCol>& cache = aniso->GetVoxelCache(side);
  trVector voxel;
  trFCol light;
  cache.MapWorldToVoxel(point, voxel);
  cache.LookupLinear(light, voxel, 1, FillSide, &sides[side], state);
  return light;
}

trFCol trVoxelScatterModelC::Impl::Background(trRenderState& state, const trVector& point,
                                              const trVector& direction) {
  trFCol sum;
  // Light from above travels along -y.
  for (int axis = 0; axis < 3; ++axis)
    sum += SideAt(state, point, 2 * axis + (direction[axis] > 0 ? 1 : 0)) *
           static_cast<float>(direction[axis] * direction[axis]);
  return sum;
}

trFCol trVoxelScatterModelC::Impl::MeanBackground(trRenderState& state, const trVector& point) {
  return SideAt(state, point, 0);
}

/// The main light at a point, dimmed by the medium.
trFCol trVoxelScatterModelC::Impl::Sunlight(trRenderState& state, const trVector& point,
                                            trFCol* transmittance) {
  const trFCol light = LightAt(state, point);
  if (light.IsBlack()) return light;
  OpticalPath path(*medium, *lighting, state, point, toLight);
  if (path.Advance(0, kDeepest)) return {};
  trFCol left;
  for (int c = 0; c < 3; ++c) left[c] = static_cast<float>(std::exp(-path.Depth()[c]));
  if (transmittance) *transmittance = left;
  // A light that comes dimmed already.
  return tellsLight ? left * light : light;
}

/// Where a path goes on, or sets out without one before: most by where light is turned to, or to any side,
/// and some towards the main light's glow, which would be found too seldom otherwise (one-sample balance
/// heuristic: Veach and Guibas 1995).
trVector trVoxelScatterModelC::Impl::TurnedOrLit(const trVector* before, double u, double v,
                                                 float& weight) const {
  const bool isLit = u < kLit;
  u = isLit ? u / kLit : (u - kLit) / (1 - kLit);
  const trVector direction = isLit    ? phase.Sample(toLight, u, v)
                             : before ? phase.Sample(*before, u, v)
                                      : SphereDirection(u, v);
  const double turned = before ? phase.Value(Dot(direction, *before)) : 1.0;
  const double density = (1 - kLit) * turned + kLit * phase.Value(Dot(direction, toLight));
  weight = density > 0 ? static_cast<float>(turned / density) : 0.0f;
  return direction;
}

void trVoxelScatterModelC::Impl::Path(trRenderState& state, const trVector& origin, const trVector& start,
                                      float share, double firstFlight, trRandomStream& draws,
                                      NodeLight& sum) {
  trVector point = origin, direction = start;
  trFCol weight(share);
  const int last = std::min(depthLimit, kScatterings);
  for (int scattering = 1; scattering <= last; ++scattering) {
    // A channel draws the free flight for all three, which share what comes out (one-sample balance
    // heuristic): equal extinctions lose nothing by it.
    const int channel = std::min(static_cast<int>(draws.Next() * 3), 2);
    const double flight = scattering == 1 ? firstFlight : draws.Next();
    OpticalPath path(*medium, *lighting, state, point, direction);
    const bool collides = path.Advance(channel, -std::log1p(-std::min(flight, 1 - 1e-12)));
    float density[3], mean = 0;
    for (int c = 0; c < 3; ++c) {
      density[c] = static_cast<float>(std::exp(-path.Depth()[c]));
      if (collides) density[c] *= path.Extinction()[c];
      mean += density[c] / 3;
    }
    if (!(mean > 0)) return;
    for (int c = 0; c < 3; ++c) weight[c] *= density[c] / mean;
    point = path.Point();
    if (!collides) {
      if (tellsBackground) sum.enviro.Add(weight * Background(state, point, direction), -start);
      return;
    }
    weight *= albedo;
    const float turned = static_cast<float>(phase.Value(Dot(direction, toLight)));
    trFCol transmittance;
    sum.direct.Add(weight * Sunlight(state, point, &transmittance) * (0.25f * turned), -start);
    if (scattering == kScatterings) {
      trVector local;
      trFCol direct, enviro;
      projector.Inner().MapWorldToLocal(point, local);
      deep.Lookup(local, transmittance, direct, enviro);
      sum.direct.Add(weight * direct, -start);
      sum.enviro.Add(weight * enviro, -start);
      return;
    }
    if (!tellsBackground) sum.enviro.Add(weight * MeanBackground(state, point), -start);
    const double u = draws.Next(), v = draws.Next();
    const trVector before = direction;
    float weightOfTurn;
    direction = TurnedOrLit(&before, u, v, weightOfTurn);
    weight *= weightOfTurn;
  }
}

/// The light deep inside, once for all nodes.
bool trVoxelScatterModelC::Impl::SolveDeep(trRenderState& state) {
  if (isDeepSolved.load(std::memory_order_acquire)) return true;
  const std::lock_guard<std::mutex> hold(deepLock);
  if (isDeepSolved.load(std::memory_order_relaxed)) return true;
  const DrawsGuard guard(state, 2);
  DiffuseSources sources;
  sources.extinction = [&](const trVector& point) {
    const trFCol extinction = medium->Extinction(state, point);
    return (extinction.r + extinction.g + extinction.b) / 3.0;
  };
  for (int c = 0; c < 3; ++c) sources.albedo[c] = albedo[c];
  sources.meanCosine = phase.MeanCosine();
  sources.share = [&](double cosine) { return halfSpace.DeepShare(cosine); };
  sources.light = [&](const trVector& point) { return LightAt(state, point); };
  sources.toLight = toLight;
  sources.background = [&](const trVector& point) {
    std::array<trFCol, 6> radiance;
    for (int side = 0; side < 6; ++side) radiance[side] = SideAt(state, point, tellsBackground ? side : 0);
    return radiance;
  };
  sources.goesOn = [&] { return !state.IsPausingOrAborting(); };
  const int cells[3] = {lighting->SizeX(), lighting->SizeY(), lighting->SizeZ()};
  if (!deep.Solve(projector.Inner(), cells, sources)) return false;
  isDeepSolved.store(true, std::memory_order_release);
  return true;
}

bool trVoxelScatterModelC::Impl::FillNode(void* owner, trRenderState& state, const trVoxelBuffer&,
                                          const trVector& world, unsigned seed, NodeLight& value) {
  if (state.IsPausingOrAborting()) return false;
  Impl& impl = *static_cast<Impl*>(owner);
  if (!impl.SolveDeep(state)) return false;
  trRandomStream draws{SampleSeed(seed, 0) + 0x9e3779b97f4a7c15ull * seed, 0};
  // Directions that a node's paths share evenly, of either kind: lattices by the golden ratio, shifted.
  const double shift[3] = {draws.Next(), draws.Next(), draws.Next()};
  NodeLight sum;
  double shares = 0;
  const auto wrapped = [](double x) { return x - std::floor(x); };
  for (int i = 0; i < kPathsPerNode; ++i) {
    const bool isLit = i % kLitEach == 0;
    const int k = isLit ? i / kLitEach : i - i / kLitEach - 1;
    const double among = isLit ? kPathsPerNode / kLitEach : kPathsPerNode - kPathsPerNode / kLitEach;
    const double within = std::min((k + wrapped(shift[0] + 0.5 * isLit)) / among, 1 - 1e-9);
    const double u = isLit ? kLit * within : kLit + (1 - kLit) * within;
    float share;
    const trVector direction =
        impl.TurnedOrLit(nullptr, u, wrapped(shift[1] + k * 0.6180339887498949), share);
    shares += share;
    impl.Path(state, world, direction, share, wrapped(shift[2] + i * 0.5698402909980532), draws, sum);
    if (state.IsPausingOrAborting()) return false;
  }
  for (Light* light : {&sum.direct, &sum.enviro}) {
    // Of what the paths stand for together: even light stays even.
    const auto scale = static_cast<float>(1.0 / std::max(shares, 1.0));
    light->mean *= scale;
    for (float& flux : light->flux) flux *= scale;
  }
  if (!impl.tellsBackground) sum.enviro.mean += impl.MeanBackground(state, world);
  impl.AddBeam(world, sum.direct, 1);
  value = sum;
  return true;
}

/// Adds, or with a sign of -1 takes away, what makes the light of nodes even enough to be interpolated where
/// it changes over a free path: what an even surface as near would have below it, taken off, and the flux of
/// the beam, which with that of scattered light varies little.
void trVoxelScatterModelC::Impl::AddBeam(const trVector& world, Light& light, float sign) const {
  trVector local;
  projector.Inner().MapWorldToLocal(world, local);
  const DiffuseField::Beam beam = deep.BeamAt(local);
  const float straight = std::exp(-beam.depth);
  const double below = halfSpace.Change(beam.cosine, beam.depth * beam.cosine);
  light.mean += beam.light * (-sign * static_cast<float>(below));
  const float grey = (beam.light.r + beam.light.g + beam.light.b) / 3 * straight;
  const double across = Dot(beam.normal, toLight);
  for (int axis = 0; axis < 3; ++axis)
    light.flux[axis] -= sign * grey * static_cast<float>(across * beam.normal[axis]);
}

trVoxelScatterModelC::trVoxelScatterModelC() = default;
trVoxelScatterModelC::~trVoxelScatterModelC() = default;

void trVoxelScatterModelC::Init(const trVoxelProjector& projector, int depthLimit,
                                trVoxelScatterMedium& medium, trVoxelCache<trFCol>& lighting,
                                trAnisoVoxelCache<trFCol>& aniso) {
  impl_ = std::make_unique<Impl>();
  Impl& impl = *impl_;
  impl.medium = &medium;
  impl.lighting = &lighting;
  impl.aniso = &aniso;
  impl.depthLimit = depthLimit;
  for (int i = 0; i < 6; ++i) impl.sides[i] = {&impl, i};
  impl.phase = PhaseTable([&medium](double c) { return medium.PhaseFunction(c); });
  impl.toLight = Normalised(medium.MainLightDirection());
  for (int c = 0; c < 3; ++c) {
    const float albedo = medium.Albedo()[c];
    impl.albedo[c] = albedo >= 0 ? std::min(albedo, 1.0f) : 0;
  }
  impl.halfSpace = HalfSpace(impl.phase, (impl.albedo.r + impl.albedo.g + impl.albedo.b) / 3);
  if (lighting.IsEmpty()) return;
  // Nodes lie two cells apart, or closer where that is more than a few free paths.
  const trVector size = lighting.EstimatedVoxelSize_WrongIfRotated({});
  const double thickness = medium.GreatestExtinction() * std::min(size.x, std::min(size.y, size.z));
  const double spacing = thickness <= 0.5 ? 2.0 : thickness <= 1.0 ? 1.0 : 0.5;
  const auto nodes = [spacing](int count) { return static_cast<int>(std::ceil(count / spacing)); };
  const int cells[3] = {nodes(lighting.SizeX()), nodes(lighting.SizeY()), nodes(lighting.SizeZ())};
  impl.projector.Init(&projector, cells);
  impl.nodes.InitVoxelBuffer(&impl.projector, cells[0] + 1, cells[1] + 1, cells[2] + 1, 1,
                             lighting.Name() + ".scatter");
}

/// What light arrives, weighted by the phase function about the way to the eye. Of the light's directions,
/// mean and flux are known; they are taken to be spread round the flux's as evenly as these allow (von Mises
/// and Fisher's distribution; its second moment closes the series).
trFCol trVoxelScatterModelC::Impl::TowardsEye(const Light& light, const trVector& view) const {
  trFCol mean;
  for (int c = 0; c < 3; ++c) mean[c] = std::max(light.mean[c], 0.0f);
  const double length = view.Length(), grey = (mean.r + mean.g + mean.b) / 3;
  const trVector flux(light.flux[0], light.flux[1], light.flux[2]);
  const double size = flux.Length();
  if (!(length > 0) || !std::isfinite(length) || !(grey > 0) || !(size > 0)) return mean;
  const double cosine = -Dot(flux, view) / (length * size), f = std::min(size / grey, 0.95);
  const double concentration = f * (3 - f * f) / (1 - f * f), second = 1 - 3 * f / concentration;
  const double factor = 1 + 3 * phase.MeanCosine() * f * cosine +
                        5 * phase.SecondMoment() * second * (1.5 * cosine * cosine - 0.5);
  return mean * static_cast<float>(std::max(factor, 0.1));
}

bool trVoxelScatterModelC::Lookup(trRenderState& state, const trVector& point, const trFCol&, trFCol& direct,
                                  trFCol& enviro) {
  direct = enviro = trFCol();
  if (!impl_ || impl_->nodes.IsEmpty() || impl_->depthLimit < 1) return false;
  Impl& impl = *impl_;
  trVector voxel;
  if (!impl.nodes.MapWorldToVoxel(point, voxel)) return true;
  impl.Ask(state, point);
  // What a blurred ray sees of it, the coarse field knows well enough.
  const trRenderState::Ray& ray = state.CurrentRay();
  if (ray.depth >= 2 && ray.quality < kBlurred) return impl.FromField(state, point, direct, enviro);
  NodeLight light;
  if (!impl.nodes.LookupLinear(light, voxel, 1, Impl::FillNode, &impl, state)) return false;
  impl.AddBeam(point, light.direct, -1);
  direct = impl.TowardsEye(light.direct, ray.end - ray.origin);
  enviro = impl.TowardsEye(light.enviro, ray.end - ray.origin);
  return true;
}

bool trVoxelScatterModelC::Impl::FromField(trRenderState& state, const trVector& point, trFCol& direct,
                                           trFCol& enviro) {
  if (!SolveDeep(state)) return false;
  trVector local;
  projector.Inner().MapWorldToLocal(point, local);
  deep.Lookup(local, trFCol(std::exp(-deep.BeamAt(local).depth)), direct, enviro);
  return true;
}

bool trVoxelScatterModelC::MainLight(trRenderState& state, const trVector& point, trFCol& light,
                                     trFCol& transmittance) {
  light = transmittance = trFCol();
  if (!impl_ || impl_->nodes.IsEmpty()) return false;
  impl_->Ask(state, point);
  if (!impl_->tellsLight) return false;
  light = impl_->LightAt(state, point);
  if (!light.IsBlack()) impl_->Sunlight(state, point, &transmittance);
  return true;
}
