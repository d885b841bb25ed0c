// Building what a frame is rendered from.
#include "host/render/frame/world.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "host/base/log.h"
#include "host/base/memory.h"
#include "host/base/parallel.h"
#include "host/base/session_context.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"
#include "host/node/shader_start.h"
#include "host/project/enviro_light.h"
#include "host/project/sunlight.h"
#include "host/render/dice/dice_parts.h"
#include "host/render/dice/prototype_edges.h"
#include "host/render/frame/part_classes.h"
#include "host/render/frame/population_claims.h"
#include "host/render/shade/shading_context.h"

namespace ovhost {
namespace {

/// What a diced vertex costs with its share of Embree's hierarchy and of dicing's temporaries, bytes.
/// Mountains of 2.2 million vertices take 270 MB with everything else the program needs.
constexpr double kBytesPerVertex = 96;
/// How much of the memory vertices may take.
constexpr double kDicedShare = 0.6;
/// Seconds between reports of progress.
constexpr double kReportPeriod = 0.2;

void WarnOfLongEdges(const DiceStatistics& dicing) {
  char times[32];
  std::snprintf(times, sizeof times, "%.2g", dicing.longestEdge);
  trWarning(std::string(dicing.isByMemory ? "Memory limit" : "Limit of micropolygons a pixel") +
            ": the longest edges of micropolygons are " + times +
            " times as long as the render node asks for.");
}

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Makers of objects may draw from the generator of new seeds, as grass does. Each finds it as its place in
/// the project tells, so that renders repeat; afterwards it goes on as if nobody had drawn.
class MakersDraws {
 public:
  MakersDraws() = default;
  ~MakersDraws() { trGlobalRand = before_; }
  MakersDraws(const MakersDraws&) = delete;
  MakersDraws& operator=(const MakersDraws&) = delete;
  void BeginMaker(std::uint64_t seed, std::size_t place) const {
    trGlobalRand.sgenrand(static_cast<unsigned long>(seed + place));
  }

 private:
  const trMersenneTwister before_ = trGlobalRand;
};

}  // namespace

World::World(juProject& project, const WorldSettings& settings, const std::atomic<bool>& stop)
    : LitScene(settings, stop), project_(project), settings_(settings) {}

World::~World() { FinishShaders(); }

bool World::Build() {
  ResolveAllLinks(&project_);
  ReportBrokenLinks(&project_, trWarning);
  if (ReportShaderRings(&project_, trWarning) > 0) return false;
  if (!MakeScenes() || !PrepareShading()) return false;

  const double start = Seconds();
  if (!BuildParts()) return false;
  diceSeconds_ = Seconds() - start;

  if (stop_) return false;
  BuildSkies();
  return RunPrepass();
}

void World::Release() {
  FinishShaders();
  prepass_.clear();
  lights_.clear();
  skyOnSurfaces_ = skyInAtmosphere_ = trFCol();
  air_ = FrameAir();
  hasSeeThrough_ = false;
}

bool World::Relight(trCloudSteps cloudSteps) {
  settings_.cloudSteps = cloudSteps;
  if (!PrepareShading()) return false;
  ClassifyParts();
  if (stop_) return false;
  BuildSkies();
  return RunPrepass();
}

bool World::PrepareShading() {
  CollectLights();
  ResolveAllLinks(&project_);
  CollectVolumes();
  return StartShaders() && !stop_;
}

void World::BuildSkies() {
  std::vector<trVector> places;
  for (const auto& grid : parts_.grids)
    for (size_t i = 0; i < grid->vertices.size(); i += kPatchVertices)
      for (const int corner : {0, kPatchSide, kPatchVertices - 1 - kPatchSide, kPatchVertices - 1})
        places.push_back(trVector(grid->vertices[i + corner].point) + View().eye);
  air_.BuildTables(
      *this, View().eye, !skyInAtmosphere_.IsBlack(),
      [this](const trVector& origin, const trVector& direction, double& distance) {
        return GroundRadiance(origin, direction, distance);
      },
      places);
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
  ClassifyParts();
  return accel_->Build();
}

void World::ClassifyParts() {
  std::vector<SurfacePart*> all;
  const auto collect = [&all](const Assembly& parts) {
    parts.ForEachSurface([&all](SurfacePart& part) { all.push_back(&part); });
  };
  collect(parts_);
  for (const auto& prototype : shared_.prototypes) collect(prototype->parts);

  hasSeeThrough_ = ovhost::ClassifyParts(*this, all);
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

  DiceSettings dice;
  dice.view = settings_.view;
  dice.edgePixels = settings_.edgePixels;
  if (memory)
    dice.maxVertices =
        static_cast<std::uint64_t>(static_cast<double>(memory) * kDicedShare / kBytesPerVertex) + 1;
  dice.pictureVertices = settings_.pictureVertices;
  dice.frame = settings_.frame;
  dice.seed = settings_.seed;
  dice.stop = &stop_;
  if (!DiceAllParts(parts_, shared_, dice, *this, dicing_)) return false;
  if (dicing_.longestEdge > 1) WarnOfLongEdges(dicing_);
  return !stop_;
}

bool World::MakeScenes() {
  const MemoryScope memory(settings_.memoryBytes);
  const MakersDraws draws;
  for (trBase* node : AllNodes(&project_)) {
    auto* maker = dynamic_cast<trSceneMaker*>(node);
    if (!maker) continue;
    auto scene = std::make_unique<trScene>();
    scene->Init();
    const trScopedErrorsWarningsContext context(node);
    const ToldErrors told;
    draws.BeginMaker(settings_.seed, scenes_.size());
    if (!maker->Make(*scene, trSceneMaker::kRender)) {
      if (memory.HasRefused()) throw ToldMemoryLimit();
      // Makers mostly tell what stopped them.
      if (!told.Any()) trError("The object could not be made.");
      return false;
    }
    scene->PrepForRender();
    scenes_.push_back({std::move(scene), {node, static_cast<int>(scenes_.size()) + 1}});
  }
  std::vector<PopulationClaim> claims;
  for (const auto& made : scenes_) claims.push_back(ClaimOf(*made.source.node, *made.scene));
  TellClaims(claims, settings_.memoryBytes);
  if (!ClaimsFit(claims, settings_.memoryBytes)) throw ToldMemoryLimit();
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

void World::CollectVolumes() {
  // Each atmosphere link is the end of a chain: everything upstream is a volume as well. A chain that feeds
  // itself ends where it meets what is already there.
  std::vector<trAtmosShader*> volumes;
  for (const auto& made : scenes_)
    for (long i = 1; i <= made.scene->NumAtmospheres(); ++i)
      for (trShader* shader = made.scene->GetAtmosphere(i); shader; shader = shader->InputShader()) {
        auto* volume = dynamic_cast<trAtmosShader*>(shader);
        if (!volume) continue;
        if (std::find(volumes.begin(), volumes.end(), volume) != volumes.end()) break;
        if (volume->IsEnabled()) volumes.push_back(volume);
      }
  air_.SetVolumes(std::move(volumes));
}

bool World::StartShaders() {
  trShadingInterface si;
  si.SetFrame(static_cast<float>(settings_.frame));
  trRenderState state(*this, si);
  trRenderingInterface rendering(state, settings_.threads, &settings_.view, trRenderContext::kFinal);
  rendering.SetCloudSteps(settings_.cloudSteps);
  for (trBase* node : AllNodes(&project_)) {
    auto* shader = dynamic_cast<trShader*>(node);
    if (!shader) continue;
    started_.push_back(shader);
    if (!StartShader(*shader, rendering)) {
      const trScopedErrorsWarningsContext context(node);
      trError("The shader could not be prepared for the render.");
      return false;
    }
  }
  for (trAtmosShader* volume : Volumes()) volume->PrepareAtmosphere(rendering);
  // Tasks may ask for light, which there is once surfaces and skies stand.
  prepass_ = rendering.PrepassTasks();
  return true;
}

bool World::RunPrepass() {
  std::vector<std::unique_ptr<ShadingContext>> workers(NumThreadSlots());
  const auto speaker = std::this_thread::get_id();
  unsigned long token = 0;
  double lastReport = Seconds();
  std::atomic<size_t> numDone{0};
  std::atomic<bool> goesOn{true};
  ParallelFor(prepass_.size(), [&](size_t i) {
    if (stop_ || !goesOn) return;
    std::unique_ptr<ShadingContext>& worker = workers[ThreadSlot()];
    if (!worker) worker = std::make_unique<ShadingContext>(*this, *this);
    if (!prepass_[i](worker->state)) goesOn = false;
    const size_t done = ++numDone;
    // The calling thread works too, and speaks for all.
    if (std::this_thread::get_id() != speaker || Seconds() - lastReport < kReportPeriod) return;
    lastReport = Seconds();
    const float share = static_cast<float>(done) / static_cast<float>(prepass_.size());
    if (!project_.ReportProgress(token, "Preparing volumes", share, -1.0f)) goesOn = false;
  });
  prepass_.clear();
  return goesOn && !stop_;
}

void World::FinishShaders() {
  trShadingInterface si;
  si.SetFrame(static_cast<float>(settings_.frame));
  trRenderState state(*this, si);
  trRenderingInterface rendering(state, settings_.threads, &settings_.view, trRenderContext::kFinal);
  for (trShader* shader : started_) FinishShader(*shader, rendering);
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

}  // namespace ovhost
