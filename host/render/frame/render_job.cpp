// A frame's plan, world, engines and film, and what of them a change leaves.
#include "host/render/frame/render_job.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <unordered_set>

#include "core/heightfield.h"
#include "host/base/memory.h"
#include "host/base/parallel.h"
#include "host/base/session_context.h"
#include "host/node/node_data.h"
#include "host/project/camera.h"
#include "host/project/enviro_light.h"
#include "host/project/render_node.h"
#include "host/project/sunlight.h"
#include "host/render/engine/standard.h"
#include "host/render/frame/deep_film_state.h"
#include "host/render/frame/denoise.h"
#include "host/render/frame/film_state.h"
#include "host/render/frame/geometry_nodes.h"
#include "host/render/frame/micro_surface.h"
#include "host/render/frame/world.h"

namespace ovhost {
namespace {

/// Seconds between reports of progress.
constexpr double kReportPeriod = 0.2;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Samples that a tile takes at one go.
struct Pass {
  std::uint32_t begin, end;
};

/// Heightfields whose rasters are whole.
std::unordered_set<trHeightfield*> ValidHeightfields(juProject& project) {
  std::unordered_set<trHeightfield*> valid;
  for (trBase* node : AllNodes(&project))
    if (auto* heightfield = dynamic_cast<trHeightfield*>(node); heightfield && heightfield->HfIsValid())
      valid.insert(heightfield);
  return valid;
}

}  // namespace

RenderOutcome ReportFailure(const std::exception& problem) {
  if (dynamic_cast<const ToldMemoryLimit*>(&problem)) return RenderOutcome::kMemoryLimit;
  const bool isMemory = IsForWantOfMemory(problem);
  trError(isMemory ? "The render ran out of memory." : std::string("The render failed: ") + problem.what());
  return isMemory ? RenderOutcome::kMemoryLimit : RenderOutcome::kFailed;
}

struct RenderJob::State {
  State(juProject& project, const RenderJobSettings& settings, RenderControl& control,
        RenderStatistics& statistics)
      : project_(project), settings_(settings), control_(control), statistics_(statistics) {}

  /// Runs one of the job's operations: for its session, in its arena, ended by its control, timed.
  template <typename Operation>
  RenderOutcome Run(const Operation& operation);
  bool Plan();
  bool MakeFilm();
  /// What film and picture may take, bytes.
  std::uint64_t FilmBytes() const;
  RenderOutcome Prepare();
  RenderOutcome Build();
  /// To whom the render node says; false where they report a failure.
  bool HandOutSurface() const;
  RenderOutcome RunPass();
  void RenderTile(int tile, Pass pass);
  std::unique_ptr<PixelEngine> MakeEngine() const;
  Picture Image() const;
  /// What a parameter of the node has a part in, or with -1 the node.
  Redo EffectOf(const trBase& node, long param) const;
  Redo Change(trBase& node, long param, const std::function<bool()>& change);
  void Forget(Redo what);

  FilmKey Key() const;
  bool IsTileDone(int tile) const;
  /// The samples that the tile which is least far takes next; false where all tiles are done.
  bool NextPass(Pass& pass) const;
  bool CountDone();
  double FractionDone() const;
  bool Report(double fraction);
  std::uint64_t Budget() const {
    return settings_.memoryBytes ? settings_.memoryBytes : FreeMemory() / 4 * 3;
  }
  bool MustEnd() const { return control_.stop || control_.pause; }

  SessionContext& session_ = SessionContext::Current();
  juProject& project_;
  const RenderJobSettings settings_;
  RenderControl& control_;
  RenderStatistics& statistics_;
  Redo redo_ = Redo::kGeometry;  ///< by the next Prepare
  RenderPlan plan_;
  bool hasPlan_ = false, isAtFrame_ = false;
  std::unique_ptr<Film> film_;
  std::unique_ptr<DeepFilm> deep_;  ///< beside it, for a deep picture
  std::unique_ptr<World> world_;
  std::unique_ptr<LightCache> lightCache_;  ///< what threads of the standard engine share
  /// What the slots of the arena have for themselves.
  struct Slot {
    std::unique_ptr<PixelEngine> engine;
    std::vector<float> kept;  ///< of the tile in hand, before the pass
    DeepFilm::Work deep;
  };
  std::vector<Slot> slots_;
  int threads_ = 1;

  unsigned long progressState_ = 0;
  std::atomic<std::uint64_t> tileSamplesDone_{0};
  std::uint64_t tileSamplesLeftOut_ = 0;  ///< by tiles that are done before they have all
  double lastReport_ = 0;
  double traceStart_ = 0, fractionAtStart_ = 0;  ///< of tracing
  std::thread::id speaker_;                      ///< who reports progress for all
};

template <typename Operation>
RenderOutcome RenderJob::State::Run(const Operation& operation) {
  const SessionScope scope(session_);
  const StopScope stop(control_.stop);
  const double start = Seconds();
  RenderOutcome outcome = RenderOutcome::kFailed;
  try {
    threads_ = settings_.threads > 0 ? settings_.threads : trNumCoresToUse();
    WithThreads(threads_, [&] {
      const trScopedErrorsWarningsContext context(plan_.context);
      outcome = operation();
    });
  } catch (const std::exception& problem) {
    outcome = ReportFailure(problem);
  }
  statistics_.seconds += Seconds() - start;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  statistics_.peakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) << 10;
  return outcome;
}

bool RenderJob::State::Plan() {
  if (hasPlan_) return true;
  if (!isAtFrame_) {
    UpdateAnimation(&project_, settings_.frame);
    project_.SetParam("current_frame", settings_.frame, trWhoSystem);
    isAtFrame_ = true;
  }
  return hasPlan_ = MakeRenderPlan(project_, settings_, plan_);
}

FilmKey RenderJob::State::Key() const {
  // FNV-1a over the names, with an end to each.
  std::uint64_t scene = settings_.sceneKey;
  const auto add = [&scene](const std::string& name) {
    for (size_t i = 0; i <= name.size(); ++i)
      scene = (scene ^ static_cast<unsigned char>(name.c_str()[i])) * 0x100000001b3ull;
  };
  add(settings_.renderNode);
  add(plan_.engine == Engine::kStandard ? "standard" : "path");
  add(settings_.camera);
  for (const std::string& layer : plan_.layers) add(layer);
  if (plan_.deepSamples > 0) add("deep " + std::to_string(plan_.deepSamples));
  const PixelRect& area = plan_.area;
  return {scene,       settings_.seed, settings_.frame, {area.x0, area.y0, area.x1, area.y1},
          plan_.width, plan_.height};
}

std::uint64_t RenderJob::State::FilmBytes() const {
  // The sums, and about twice as much to make a picture of them.
  const std::uint64_t sums = Film::BytesFor(plan_.area, plan_.layers) * 3;
  return sums + (plan_.deepSamples > 0 ? DeepFilm::BytesFor(plan_.area, plan_.deepSamples) : 0);
}

bool RenderJob::State::MakeFilm() {
  if (film_) return true;
  if (const std::uint64_t bytes = FilmBytes(), budget = Budget(); bytes > budget) {
    const auto megabytes = [](std::uint64_t n) { return std::to_string(n >> 20) + " MB"; };
    trError("The memory limit is too small for the picture's size" +
            (plan_.deepSamples > 0
                 ? ": with " + std::to_string(plan_.deepSamples) + " deep samples a pixel it may take " +
                       megabytes(bytes) + ", and there are " + megabytes(budget) + "; fewer take less."
                 : "."));
    return false;
  }
  film_ = std::make_unique<Film>(plan_.area, plan_.width, plan_.height, plan_.layers);
  if (plan_.deepSamples > 0) deep_ = std::make_unique<DeepFilm>(*film_, plan_.deepSamples);
  return true;
}

// --- What is rendered

RenderOutcome RenderJob::State::Prepare() {
  if (redo_ == Redo::kNothing) return RenderOutcome::kDone;
  if (redo_ >= Redo::kSamples) Report(0);
  const std::unordered_set<trHeightfield*> whole = ValidHeightfields(project_);
  const RenderOutcome outcome = Build();
  if (outcome == RenderOutcome::kDone) {
    redo_ = Redo::kNothing;
    CountDone();
    traceStart_ = Seconds();
    fractionAtStart_ = FractionDone();
    return outcome;
  }
  if (world_) world_->Release();
  // Work that was ended keeps what it has: it must not be taken for the whole.
  if (control_.stop)
    for (trHeightfield* heightfield : ValidHeightfields(project_))
      if (!whole.count(heightfield)) heightfield->HfInvalidate();
  return outcome;
}

RenderOutcome RenderJob::State::Build() {
  const auto failed = [this] { return control_.stop ? RenderOutcome::kStopped : RenderOutcome::kFailed; };
  if (redo_ < Redo::kSamples) return RenderOutcome::kDone;
  slots_.clear();
  lightCache_.reset();

  // What memory is left beside the film, and the threads' shared light.
  const std::uint64_t filmBytes = FilmBytes();
  std::uint64_t memory = Budget();
  memory -= std::min(memory, filmBytes);
  const double pixels = static_cast<double>(plan_.area.x1 - plan_.area.x0) * (plan_.area.y1 - plan_.area.y0);
  if (plan_.engine == Engine::kStandard) lightCache_ = MakeLightCache(pixels, memory);

  // The world, as much of it as has to be made.
  if (redo_ == Redo::kShading && world_ && !world_->Relight(plan_.engines.cloudSteps)) return failed();
  if (redo_ == Redo::kGeometry || !world_) {
    WorldSettings settings;
    settings.view = plan_.view;
    settings.edgePixels = plan_.engines.edgePixels;
    settings.pictureVertices = plan_.engines.pictureVertices;
    settings.frame = settings_.frame;
    settings.seed = settings_.seed;
    settings.compensatesEnergy = plan_.engines.compensatesEnergy;
    settings.cloudSteps = plan_.engines.cloudSteps;
    settings.threads = threads_;
    settings.memoryBytes = memory;
    if (lightCache_) settings.memoryBytes -= std::min(lightCache_->Bytes(), memory / 2);
    world_ = std::make_unique<World>(project_, settings, control_.stop);
    if (!world_->Build()) {
      world_.reset();
      return failed();
    }

    // What is odd about it, and its figures.
    if (world_->Parts().IsEmpty()) trWarning("The project has no object to render; only the sky will show.");
    if (const trBase* object = plan_.hasCamera ? world_->ObjectAroundEye() : nullptr)
      trError("The camera is inside " + object->NameAndPath() + ", below its surface.");
    statistics_.vertices = world_->Dicing().vertices;
    statistics_.displacements = world_->Dicing().displacements;
    statistics_.diceSeconds = world_->DiceSeconds();
    statistics_.gridBytes = world_->Dicing().vertices * sizeof(GridVertex);
    if (!HandOutSurface()) return RenderOutcome::kOutputFailed;
  }
  if (redo_ >= Redo::kShading && world_->Suns().empty()) trWarning("The project has no light.");
  slots_.resize(NumThreadSlots());
  return RenderOutcome::kDone;
}

bool RenderJob::State::HandOutSurface() const {
  const auto* const render = dynamic_cast<const trRenderNode*>(plan_.context);
  trBase* const node = render ? render->MicroExporter() : nullptr;
  if (!node) return true;
  const trScopedErrorsWarningsContext context(node);
  auto* const handler = dynamic_cast<trMicroHandler*>(node);
  if (!handler) {
    trWarning("The node is no exporter of micropolygons; it is left out.");
    return true;
  }
  return handler->HandleMicroSurface(CollectMicroSurface(world_->Parts())) != 0;
}

std::unique_ptr<PixelEngine> RenderJob::State::MakeEngine() const {
  if (plan_.engine == Engine::kPath) return std::make_unique<PathTracer>(*world_, plan_.engines.path);
  return std::make_unique<StandardTracer>(*world_, plan_.engines.path, plan_.engines.indirect,
                                          plan_.engines.trace, *lightCache_);
}

// --- Passes

bool RenderJob::State::IsTileDone(int tile) const {
  const std::uint32_t samples = film_->TileSamples(tile);
  if (samples >= static_cast<std::uint32_t>(plan_.samples)) return true;
  return plan_.noiseTarget > 0 && samples >= plan_.leastSamples && film_->TileNoise(tile) < plan_.noiseTarget;
}

bool RenderJob::State::NextPass(Pass& pass) const {
  bool isDone = true;
  for (int tile = 0; tile < film_->NumTiles(); ++tile) {
    if (IsTileDone(tile)) continue;
    pass.begin = isDone ? film_->TileSamples(tile) : std::min(pass.begin, film_->TileSamples(tile));
    isDone = false;
  }
  // One sample for the first picture, then as many at a time as are traced together.
  const auto all = static_cast<std::uint32_t>(plan_.samples);
  pass.end = pass.begin == 0 ? 1 : std::min(all, (pass.begin / kSamplesTogether + 1) * kSamplesTogether);
  return !isDone;
}

void RenderJob::State::RenderTile(int tile, Pass pass) {
  Slot& slot = slots_[ThreadSlot()];
  std::unique_ptr<PixelEngine>& engine = slot.engine;
  if (!engine) engine = MakeEngine();
  // Saved sums may end anywhere in a pass.
  pass.begin = std::max(pass.begin, film_->TileSamples(tile));
  CameraSample samples[kSamplesTogether];
  const PathCounters before = engine->Counters();
  const PixelRect rect = film_->TileRect(tile);
  film_->GetTileSums(tile, slot.kept);
  slot.deep.Begin();
  bool isWhole = true;
  try {
    for (int y = rect.y0; y < rect.y1 && isWhole; ++y) {
      for (int x = rect.x0; x < rect.x1; ++x) {
        engine->SamplePixel(x, y, pass.begin, pass.end, samples);
        film_->Add(x, y, samples, static_cast<int>(pass.end - pass.begin));
        if (deep_) deep_->Add(tile, samples, static_cast<int>(pass.end - pass.begin), slot.deep);
      }
      isWhole = !control_.stop || y + 1 == rect.y1;
    }
  } catch (...) {
    film_->SetTileSums(tile, slot.kept);
    throw;
  }
  const PathCounters after = engine->Counters();
  std::atomic_ref(statistics_.cameraRays) += after.cameraRays - before.cameraRays;
  std::atomic_ref(statistics_.shadowRays) += after.shadowRays - before.shadowRays;
  std::atomic_ref(statistics_.bounceRays) += after.bounceRays - before.bounceRays;
  std::atomic_ref(statistics_.volumeSamples) += after.volumeSamples - before.volumeSamples;
  if (!isWhole) return film_->SetTileSums(tile, slot.kept);
  film_->TileSamples(tile) = pass.end;
  if (deep_) deep_->Replace(tile, slot.deep);
  tileSamplesDone_ += pass.end - pass.begin;
}

RenderOutcome RenderJob::State::RunPass() {
  Pass pass;
  if (!NextPass(pass)) return RenderOutcome::kDone;
  speaker_ = std::this_thread::get_id();
  ParallelFor(static_cast<size_t>(film_->NumTiles()), [&](size_t index) {
    const int tile = static_cast<int>(index);
    if (MustEnd() || film_->TileSamples(tile) >= pass.end || IsTileDone(tile)) return;
    RenderTile(tile, pass);
    // The calling thread renders too, and speaks for all.
    if (std::this_thread::get_id() != speaker_ || Seconds() - lastReport_ < kReportPeriod) return;
    lastReport_ = Seconds();
    if (!Report(FractionDone())) control_.stop = true;
  });
  if (CountDone()) Report(1);
  return control_.stop ? RenderOutcome::kStopped : RenderOutcome::kDone;
}

bool RenderJob::State::CountDone() {
  std::uint64_t done = 0, leftOut = 0;
  const auto all = static_cast<std::uint64_t>(plan_.samples);
  std::uint32_t most = 0, least = std::numeric_limits<std::uint32_t>::max();
  bool isDone = true;
  for (int tile = 0; tile < film_->NumTiles(); ++tile) {
    const std::uint32_t samples = film_->TileSamples(tile);
    done += std::min<std::uint64_t>(samples, all);
    most = std::max(most, samples);
    if (IsTileDone(tile)) {
      leftOut += all - std::min<std::uint64_t>(samples, all);
    } else {
      least = std::min(least, samples);
      isDone = false;
    }
  }
  tileSamplesDone_ = done;
  tileSamplesLeftOut_ = leftOut;
  statistics_.samplesDone = static_cast<int>(isDone ? most : least);
  statistics_.deepSamples = deep_ ? deep_->NumSteps() : 0;
  return isDone;
}

double RenderJob::State::FractionDone() const {
  return static_cast<double>(tileSamplesDone_ + tileSamplesLeftOut_) /
         (static_cast<double>(film_->NumTiles()) * plan_.samples);
}

bool RenderJob::State::Report(double fraction) {
  auto* node = const_cast<trBase*>(plan_.context);
  // What went before the first sample says nothing of how long the others take.
  const double done = fraction - fractionAtStart_;
  const float remaining =
      done > 0.01 ? static_cast<float>((Seconds() - traceStart_) / done * (1 - fraction)) : -1.0f;
  return node->ReportProgress(progressState_, "Rendering", static_cast<float>(fraction), remaining) != 0;
}

Picture RenderJob::State::Image() const {
  Picture picture = film_->MakePicture();
  if (plan_.denoise) DenoisePicture(picture, film_->MeanVariance());
  return picture;
}

// --- Changes

Redo RenderJob::State::EffectOf(const trBase& node, long param) const {
  if (FindGeometryNodes(project_).Has(node, param)) return Redo::kGeometry;
  // What the plan reads of these tells by itself.
  if (dynamic_cast<const trRenderNode*>(&node)) return Redo::kPicture;
  if (dynamic_cast<const trShader*>(&node) || dynamic_cast<const trSunlightNode*>(&node) ||
      dynamic_cast<const trEnviroLightNode*>(&node) || dynamic_cast<const trHeightfield*>(&node) ||
      dynamic_cast<const trCameraNode*>(&node))
    return Redo::kShading;
  return Redo::kGeometry;
}

Redo RenderJob::State::Change(trBase& node, long param, const std::function<bool()>& change) {
  const bool wasPlanned = Plan();
  const RenderPlan before = plan_;
  // What is affected is let go before the change: shaders aren't changed between their StartRender and
  // FinishRender.
  Redo redo = EffectOf(node, param);
  if (redo >= Redo::kShading) Forget(redo);
  const std::uint32_t links = GraphGeneration();
  if (!change()) return redo >= Redo::kShading ? redo : Redo::kNothing;

  // A new link, or a switch, may have made a node one that geometry depends on.
  redo = std::max(redo, GraphGeneration() != links ? Redo::kGeometry : EffectOf(node, param));
  hasPlan_ = false;
  if (!Plan() || !wasPlanned)
    redo = Redo::kGeometry;
  else if (redo == Redo::kPicture)
    redo = before.Towards(plan_);
  else
    redo = std::max(redo, before.Towards(plan_));
  Forget(redo);
  return redo;
}

void RenderJob::State::Forget(Redo what) {
  redo_ = std::max(redo_, what);
  if (what == Redo::kNothing) return;
  hasPlan_ = false;
  if (what < Redo::kSamples) return;
  deep_.reset();
  film_.reset();
  slots_.clear();
  if (what == Redo::kGeometry)
    world_.reset();
  else if (what == Redo::kShading && world_)
    world_->Release();
}

// --- The job

RenderJob::RenderJob(juProject& project, const RenderJobSettings& settings, RenderControl& control)
    : state_(std::make_unique<State>(project, settings, control, statistics_)) {}

RenderJob::~RenderJob() {
  const SessionScope scope(state_->session_);
  state_.reset();
}

RenderOutcome RenderJob::Prepare() {
  const SessionScope scope(state_->session_);
  if (!state_->Plan()) return RenderOutcome::kFailed;
  return state_->Run([this] { return state_->MakeFilm() ? state_->Prepare() : RenderOutcome::kMemoryLimit; });
}

RenderOutcome RenderJob::RunPass() {
  if (state_->redo_ != Redo::kNothing || !state_->film_)
    if (const RenderOutcome outcome = Prepare(); outcome != RenderOutcome::kDone) return outcome;
  return state_->Run([this] { return state_->RunPass(); });
}

bool RenderJob::IsDone() {
  Pass next;
  return state_->film_ && state_->Plan() && !state_->NextPass(next);
}

double RenderJob::FractionDone() { return state_->film_ && state_->Plan() ? state_->FractionDone() : 0; }

trMicroSurface RenderJob::DicedSurface() const {
  return state_->world_ ? CollectMicroSurface(state_->world_->Parts()) : trMicroSurface();
}

Picture RenderJob::Image() {
  const SessionScope scope(state_->session_);
  Picture picture;
  if (state_->film_ && state_->Plan()) WithThreads(state_->threads_, [&] { picture = state_->Image(); });
  return picture;
}

const DeepPixels* RenderJob::Deep() const { return state_->deep_.get(); }

Picture RenderJob::Layer(const std::string& name) {
  const Picture all = Image();
  std::vector<size_t> wanted;
  for (size_t c = 0; c < all.channels.size(); ++c) {
    const size_t dot = all.channels[c].find('.');
    if (all.channels[c].substr(0, dot) == name || (dot == std::string::npos && name == "beauty"))
      wanted.push_back(c);
  }
  return wanted.empty() ? Picture() : ChannelsOf(all, wanted);
}

const ViewTransform& RenderJob::Transform() {
  const SessionScope scope(state_->session_);
  state_->Plan();
  return state_->plan_.transform;
}

bool RenderJob::Save(const Writer& write) {
  return state_->film_ && state_->Plan() && WriteFilm(write, state_->Key(), *state_->film_) &&
         (!state_->deep_ || WriteDeepFilm(write, *state_->deep_));
}

RenderJob::Resumed RenderJob::Resume(const Reader& read) {
  const SessionScope scope(state_->session_);
  if (!state_->Plan() || !state_->MakeFilm()) return Resumed::kOther;
  FilmState found = ReadFilm(read, state_->Key(), *state_->film_);
  if (found == FilmState::kLoaded && state_->deep_ && !ReadDeepFilm(read, *state_->deep_)) {
    state_->film_->Clear();
    found = FilmState::kDamaged;
  }
  state_->CountDone();
  return found == FilmState::kLoaded  ? Resumed::kLoaded
         : found == FilmState::kOther ? Resumed::kOther
                                      : Resumed::kDamaged;
}

bool RenderJob::HasMoreThanAsked() const {
  const Film* const film = state_->film_.get();
  for (int tile = 0; film && tile < film->NumTiles(); ++tile)
    if (film->TileSamples(tile) > static_cast<std::uint32_t>(state_->plan_.samples)) return true;
  return false;
}

bool RenderJob::IsOfThisJob(const Reader& read) const {
  const SessionScope scope(state_->session_);
  return state_->film_ && state_->Plan() && IsFilmOf(read, state_->Key(), *state_->film_);
}

Redo RenderJob::Change(trBase& node, const std::function<bool()>& change) {
  const SessionScope scope(state_->session_);
  return state_->Change(node, -1, change);
}

Redo RenderJob::SetParam(trBase& node, const char* name, const trParamValue& value, trBase* who) {
  const SessionScope scope(state_->session_);
  long param;
  if (!node.FindParam(param, name)) return Redo::kNothing;
  return state_->Change(node, param, [&] { return node.SetParam(param, value, who) != 0; });
}

void RenderJob::Forget(Redo what) {
  const SessionScope scope(state_->session_);
  state_->Forget(what);
}

}  // namespace ovhost
