// Building what a frame is rendered from, and answering shaders.
#include "host/render/world.h"

#include <algorithm>
#include <chrono>

#include "host/base/log.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"
#include "host/project/enviro_light.h"
#include "host/project/sunlight.h"
#include "host/render/sampler.h"
#include "host/render/shading_context.h"

namespace ovhost {
namespace {

/// What a diced vertex costs with its share of Embree's hierarchy and of dicing's temporaries, bytes.
/// Mountains of 2.2 million vertices take 270 MB with everything else the program needs.
constexpr double kBytesPerVertex = 96;
/// What a vertex of a displaced mesh costs, in those of diced surfaces: two triangles each.
constexpr std::uint64_t kMicroVertexShare = 4;
/// Points at which parts are looked at before the render: all together, and of one part.
constexpr int kAllProbes = 1 << 15, kLeastProbes = 64, kMostProbes = 2048;
/// Albedo of ground whose light only brightens the air above it.
constexpr float kGroundAlbedo = 0.2f;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// What the ground sends up into the air: sunlit Lambert ground of middling albedo.
trFCol GroundRadiance(trRenderServices& services, const trVector& origin, const trVector& direction,
                      double& distance) {
  const auto& world = static_cast<const World&>(services);
  SurfaceHit hit;
  if (world.Rays().IsEmpty() ||
      !world.Rays().Intersect(origin - world.View().eye, direction, 1e-3, distance, hit, kIndirectRays))
    return {};
  distance = hit.distance;
  const trVector normal = Dot(hit.faceNormal, direction) <= 0 ? hit.faceNormal : -hit.faceNormal;
  trFCol light;
  for (const auto& sun : world.Suns()) {
    const double cosine = Dot(normal, sun->Dir());
    if (cosine > 0)
      light += sun->Radiance() * static_cast<float>(kGroundAlbedo * cosine) *
               world.Sky().Transmittance(origin + direction * hit.distance, sun->Dir(),
                                         sun->AngularRadiusInRadians(origin));
  }
  return light;
}

}  // namespace

// --- Suns
// -----------------------------------------------------------------------------------------------------------

SunLight::SunLight(const World& world, const trSunlightNode& node)
    : world_(world),
      direction_(node.Direction()),
      radiance_(node.Radiance()),
      angularRadius_(std::clamp(node.AngularRadius(), 1e-5, 1.5)),
      shadows_(node.CastsShadows()),
      glow_(node.GlowsInAtmosphere()),
      visibleDisc_(node.HasVisibleDisc()) {
  sideA_ =
      Normalised(std::fabs(direction_.y) < 0.9 ? Cross(direction_, {0, 1, 0}) : Cross(direction_, {1, 0, 0}));
  sideB_ = Cross(direction_, sideA_);
}

trVector SunLight::TracePos(const trVector& point, double& distance) const {
  distance = world_.FarDistance();
  return point + direction_ * distance;
}

trVector SunLight::SampleDisc(const tr2Vector& draw) const {
  const double r = std::sqrt(draw.x) * std::tan(angularRadius_), phi = 2 * kPi * draw.y;
  return Normalised(direction_ + sideA_ * (r * std::cos(phi)) + sideB_ * (r * std::sin(phi)));
}

double SunLight::DiscPdf(const trVector& direction) const {
  // Evenly over a disc in the plane at unit distance.
  const double radius = std::tan(angularRadius_), cosine = std::fmax(Dot(direction, direction_), 1e-3);
  return 1 / (kPi * radius * radius * cosine * cosine * cosine);
}

trFCol SunLight::ThroughVolumes(trRenderState& state, const trVector& point) const {
  if (!shadows_ || world_.Volumes().empty()) return trFCol(1.0f);
  if (world_.Sky().IsSymmetric()) return world_.Sky().Transmittance(point, direction_, angularRadius_);
  return trFCol(1.0f) - state.TraceOpacity(point, point + direction_ * world_.FarDistance());
}

trFCol SunLight::Intensity(trRenderState& state, const trVector& point, const trVector&) const {
  const trFCol through = radiance_ * ThroughVolumes(state, point);
  if (!shadows_ || !state.CurrentRay().tracesShadows || through.IsBlack() || world_.Rays().IsEmpty())
    return through;
  const tr2Vector draw(state.Random(), state.Random());
  const bool blocked =
      world_.Rays().Occluded(point - world_.View().eye, SampleDisc(draw), 0, world_.FarDistance());
  return blocked ? trFCol() : through;
}

trFCol SunLight::DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                        const trVector&, const trFCol&) const {
  return Intensity(state, point, spot);
}

// --- Building
// -------------------------------------------------------------------------------------------------------

World::World(juProject& project, const WorldSettings& settings, const std::atomic<bool>& stop)
    : project_(project), settings_(settings), stop_(stop), accel_(std::make_unique<Accel>()) {}

World::~World() { FinishShaders(); }

bool World::Build() {
  ResolveAllLinks(&project_);
  ReportBrokenLinks(&project_, trWarning);
  if (ReportShaderRings(&project_, trWarning) > 0) return false;
  if (!MakeScenes()) return false;
  CollectLights();
  for (const auto& made : scenes_) CollectVolumes(*made.scene);
  ResolveAllLinks(&project_);
  if (!StartShaders()) return false;

  const double start = Seconds();
  if (!BuildParts()) return false;
  diceSeconds_ = Seconds() - start;

  BuildSkies();
  return !stop_;
}

void World::BuildSkies() {
  sky_.BuildTransmittance(volumes_, *this);
  if (!lights_.empty() && !skyInAtmosphere_.IsBlack())
    sky_.BuildEnviro(volumes_, *this, lights_[0]->Dir(), lights_.size() > 1, GroundRadiance);
  if (!sky_.IsSymmetric() || lights_.size() != 1) return;
  std::vector<trVector> places;
  for (const auto& grid : parts_.grids)
    for (size_t i = 0; i < grid->vertices.size(); i += kPatchVertices)
      for (const int corner : {0, kPatchSide, kPatchVertices - 1 - kPatchSide, kPatchVertices - 1})
        places.push_back(trVector(grid->vertices[i + corner].point) + View().eye);
  bounceSky_.Build(volumes_, *this, sky_.Centre(), lights_[0]->Dir(), View().eye, places);
}

bool World::BuildParts() {
  parts_.origin = settings_.view.eye;
  shared_.view = settings_.view;
  shared_.seed = settings_.seed;
  for (const auto& made : scenes_) GatherParts(*made.scene, made.source, parts_, shared_);
  if (!DiceParts()) return false;
  for (const auto& prototype : shared_.prototypes)
    if (!accel_->Build(*prototype)) return false;
  accel_->Add(parts_);
  LookAtParts();
  return accel_->Build();
}

void World::LookAtParts() {
  std::vector<std::pair<SurfacePart*, size_t>> all;
  const auto collect = [&all](const Assembly& parts) {
    for (const auto& grid : parts.grids) all.emplace_back(grid.get(), grid->patches.size());
    for (const auto& mesh : parts.micros) all.emplace_back(mesh.get(), mesh->triangles.size());
    for (const auto& mesh : parts.meshes) all.emplace_back(mesh.get(), mesh->triangles.size());
  };
  collect(parts_);
  for (const auto& prototype : shared_.prototypes) collect(prototype->parts);

  // Small clear spots are found where there are few parts to look at.
  const int probes = std::clamp(kAllProbes / static_cast<int>(all.size() + 1), kLeastProbes, kMostProbes);
  ShadowRays eye(*this);
  for (const auto& [part, primitives] : all) {
    const ShadowRays::Looks looks = eye.Probe(*part, primitives, probes);
    part->mayBePlain = looks.isPlain;
    part->isSeeThrough = looks.isClear && (part->rayKinds & kShadowRays);
    hasSeeThrough_ |= part->isSeeThrough;
  }
}

bool World::DiceAssembly(Assembly& parts, const DiceSettings& settings) {
  for (const auto& grid : parts.grids)
    if (!Dice(*grid, settings, *this, dicing_)) return false;
  // A displaced mesh has a few times as much to keep for each vertex.
  DiceSettings meshSettings = settings;
  meshSettings.maxVertices = settings.maxVertices / kMicroVertexShare;
  std::erase_if(parts.micros, [&](const std::unique_ptr<MicroMesh>& mesh) {
    bool moves = true;
    if (stop_ || !DisplaceMesh(*mesh, meshSettings, *this, dicing_, moves) || moves) return false;
    parts.meshes.push_back(MakeTriMesh(*mesh, mesh->roots, parts.origin));
    return true;
  });
  return !stop_;
}

bool World::DiceParts() {
  std::uint64_t memory = settings_.memoryBytes;
  const auto take = [&memory](std::uint64_t bytes) {
    if (memory && bytes >= memory) throw std::bad_alloc();
    if (memory) memory -= bytes;
  };
  take(parts_.Bytes());
  for (const auto& prototype : shared_.prototypes) take(prototype->parts.Bytes());
  FindFinestEdges(parts_, shared_, settings_.edgePixels);

  size_t numDiced = parts_.grids.size() + parts_.micros.size();
  for (const auto& prototype : shared_.prototypes)
    numDiced += prototype->parts.grids.size() + prototype->parts.micros.size();
  DiceSettings dice;
  dice.view = settings_.view;
  dice.edgePixels = settings_.edgePixels;
  if (memory) {
    const double vertices = static_cast<double>(memory) * 0.6 / kBytesPerVertex;
    dice.maxVertices =
        std::max<std::uint64_t>(static_cast<std::uint64_t>(vertices) / std::max<size_t>(numDiced, 1), 100000);
  }
  dice.pictureVertices = settings_.pictureVertices;
  dice.frame = settings_.frame;
  dice.seed = settings_.seed;
  dice.stop = &stop_;
  if (!DiceAssembly(parts_, dice)) return false;
  for (const auto& prototype : shared_.prototypes) {
    dice.copiedEdge = prototype->finestEdge;
    dice.origin = prototype->parts.origin;
    if (!DiceAssembly(prototype->parts, dice)) return false;
  }
  if (dicing_.longestEdge > 1) WarnOfLongEdges(dice);
  return true;
}

void World::WarnOfLongEdges(const DiceSettings& dice) const {
  const bool isMemory =
      dice.maxVertices && (!dice.pictureVertices || dice.maxVertices < dice.pictureVertices);
  char times[32];
  std::snprintf(times, sizeof times, "%.2g", dicing_.longestEdge);
  trWarning(std::string(isMemory ? "Memory limit" : "Limit of micropolygons a pixel") +
            ": the longest edges of micropolygons are " + times +
            " times as long as the render node asks for.");
}

bool World::MakeScenes() {
  for (trBase* node : AllNodes(&project_)) {
    auto* maker = dynamic_cast<trSceneMaker*>(node);
    if (!maker) continue;
    auto scene = std::make_unique<trScene>();
    scene->Init();
    const trScopedErrorsWarningsContext context(node);
    const long errors = NumErrors();
    if (!maker->Make(*scene, trSceneMaker::kRender)) {
      // Makers mostly tell what stopped them.
      if (NumErrors() == errors) trError("The object could not be made.");
      return false;
    }
    scene->PrepForRender();
    scenes_.push_back({std::move(scene), {node, static_cast<int>(scenes_.size()) + 1}});
  }
  return true;
}

void World::CollectLights() {
  for (trBase* node : AllNodes(&project_)) {
    if (const auto* sun = dynamic_cast<const trSunlightNode*>(node); sun && sun->IsEnabled())
      lights_.push_back(std::make_unique<SunLight>(*this, *sun));
    if (const auto* sky = dynamic_cast<const trEnviroLightNode*>(node); sky && sky->IsEnabled()) {
      skyOnSurfaces_ += sky->StrengthOnSurfaces();
      skyInAtmosphere_ += sky->StrengthInAtmosphere();
    }
  }
}

void World::CollectVolumes(const trScene& scene) {
  // Each atmosphere link is the end of a chain: everything upstream is a volume as well. A chain that feeds
  // itself ends where it meets what is already there.
  for (long i = 1; i <= scene.NumAtmospheres(); ++i)
    for (trShader* shader = scene.GetAtmosphere(i); shader; shader = shader->InputShader()) {
      auto* volume = dynamic_cast<trAtmosShader*>(shader);
      if (!volume) continue;
      if (std::find(volumes_.begin(), volumes_.end(), volume) != volumes_.end()) break;
      if (volume->IsEnabled()) volumes_.push_back(volume);
    }
}

bool World::StartShaders() {
  trShadingInterface si;
  si.SetFrame(static_cast<float>(settings_.frame));
  trRenderState state(*this, si);
  trRenderingInterface rendering(state, settings_.threads, &settings_.view, trRenderContext::kFinal);
  for (trBase* node : AllNodes(&project_)) {
    auto* shader = dynamic_cast<trShader*>(node);
    if (!shader) continue;
    started_.push_back(shader);
    if (!shader->StartRender(rendering)) {
      const trScopedErrorsWarningsContext context(node);
      trError("The shader could not be prepared for the render.");
      return false;
    }
  }
  for (trAtmosShader* volume : volumes_) volume->PrepareAtmosphere(rendering);
  for (const auto& task : rendering.PrepassTasks())
    if (!task(state)) return false;
  return true;
}

void World::FinishShaders() {
  trShadingInterface si;
  si.SetFrame(static_cast<float>(settings_.frame));
  trRenderState state(*this, si);
  trRenderingInterface rendering(state, settings_.threads, &settings_.view, trRenderContext::kFinal);
  for (trShader* shader : started_) shader->FinishRender(rendering);
  started_.clear();
}

const trBase* World::ObjectAroundEye() const {
  if (accel_->IsEmpty()) return nullptr;
  for (const auto& mesh : parts_.grids) {
    const trVector up = View().eye - mesh->scene->GetTransform().forward.Translation();
    const trVector direction = up.Length() > 0 ? Normalised(up) : trVector(0, 1, 0);
    SurfaceHit hit;
    if (accel_->Intersect({}, direction, 0, FarDistance(), hit) && hit.part == mesh.get() &&
        Dot(hit.faceNormal, direction) > 0)
      return mesh->node;
  }
  return nullptr;
}

// --- Services
// -------------------------------------------------------------------------------------------------------

trFCol World::Trace(trRenderState& state, const trVector& origin, const trVector& direction, bool) {
  // Light along a ray without the surface's own network: the air, and ground of middling albedo behind it.
  double distance = FarDistance();
  const trFCol leaving = GroundRadiance(*this, origin, direction, distance);
  trAtomicIntegrator integrator;
  const trRenderState::Ray saved = state.CurrentRay();
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = origin;
  ray.end = origin + direction * distance;
  ray.depth = saved.depth + 1;
  ray.wantsColour = true;
  integrator.Begin(state);
  const trAtomicIntegrator::Result air = integrator.Integrate(state, volumes_);
  integrator.FreeRayData();
  state.CurrentRay() = saved;
  return air.Colour() + air.transmittance * leaving;
}

trFCol World::TraceOpacity(trRenderState& state, const trVector& from, const trVector& to) {
  const trVector path = to - from;
  const double length = path.Length();
  if (state.CurrentRay().tracesShadows && !accel_->IsEmpty() && length > 0 &&
      accel_->Occluded(from - View().eye, path * (1 / length), 1e-3, length))
    return trFCol(1.0f);
  trAtomicIntegrator integrator;
  const trRenderState::Ray saved = state.CurrentRay();
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = from;
  ray.end = to;
  ray.depth = saved.depth + 1;
  ray.wantsColour = false;
  integrator.Begin(state);
  const trAtomicIntegrator::Result air = integrator.Integrate(state, volumes_);
  integrator.FreeRayData();
  state.CurrentRay() = saved;
  return trFCol(1.0f) - air.transmittance;
}

trFCol World::DirectDiffuse(trRenderState& state, const trVector& point, const trVector& normal) {
  trFCol light;
  for (const auto& sun : lights_) {
    const double cosine = Dot(normal, sun->Dir());
    if (cosine > 0) light += sun->Intensity(state, point, {}) * static_cast<float>(cosine);
  }
  return light;
}

trFCol World::IndirectDiffuse(trRenderState&, const trVector& point, const trVector& normal) {
  trFCol above, below;
  sky_.Enviro(point, above, below);
  // Half the table's doubled means, by how much of each half space the surface faces.
  const double up = 0.5 + 0.5 * Dot(normal, sky_.Up(point));
  return (above * static_cast<float>(up) + below * static_cast<float>(1 - up)) * 0.5f * skyOnSurfaces_;
}

void World::EnviroInAtmosphere(trRenderState&, const trVector& point, const trVector&, trFCol& above,
                               trFCol& below) {
  sky_.Enviro(point, above, below);
  above *= skyInAtmosphere_;
  below *= skyInAtmosphere_;
}

bool World::IntersectTris(const trScene& scene, const trVector& origin, const trVector& direction,
                          trTriHit& hit) {
  return triRays_.Intersect(scene, origin, direction, hit);
}

double World::SpotSize(const trVector& point) const {
  return FootprintAt(settings_.view, settings_.edgePixels, (point - settings_.view.eye).Length());
}

}  // namespace ovhost
