// One frame, from project to picture file.
#include "host/render/frame/render.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "host/base/log.h"
#include "host/base/memory.h"
#include "host/base/parallel.h"
#include "host/node/node_data.h"
#include "host/project/camera.h"
#include "host/project/render_node.h"
#include "host/render/engine/engine_settings.h"
#include "host/render/engine/path.h"
#include "host/render/engine/standard.h"
#include "host/render/frame/checkpoint.h"
#include "host/render/frame/denoise.h"
#include "host/render/frame/world.h"

namespace ovhost {
namespace {

/// Pictures past this many pixels are refused: their film alone would not fit.
constexpr double kMaxPixels = 4e8;
/// Seconds between pictures written while a render goes on.
constexpr double kSecondsBetweenWrites = 3;
double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

template <typename T>
T* FindNode(juProject& project, const std::string& wanted) {
  if (!wanted.empty()) return dynamic_cast<T*>(project.NodeByPath(wanted));
  for (trBase* node : AllNodes(&project))
    if (auto* found = dynamic_cast<T*>(node)) return found;
  return nullptr;
}

/// What the frame is made with: the render node's settings under the command line's.
struct Plan {
  int width = 0, height = 0, samples = 0;
  std::uint32_t leastSamples = 0;
  double noiseTarget = 0;  ///< tiles below it take no more samples; 0 for none
  PixelRect area;
  trView view;
  bool hasCamera = false;  ///< otherwise the view is made up
  Engine engine = Engine::kPath;
  EngineSettings engines;
  bool denoise = false;
  ViewTransform transform;
  std::vector<std::string> layers;
  const trBase* context = nullptr;
};

/// Samples that a tile takes at one go.
struct Pass {
  std::uint32_t begin, end;
};

/// One sample for the first picture, then as many at a time as are traced together.
std::vector<Pass> Passes(int samples) {
  std::vector<Pass> passes;
  const auto end = static_cast<std::uint32_t>(samples);
  for (std::uint32_t i = 0; i < end;) {
    const std::uint32_t next = i == 0 ? 1 : std::min(end, (i / kSamplesTogether + 1) * kSamplesTogether);
    passes.push_back({i, next});
    i = next;
  }
  return passes;
}

/// Engines by the slots of the arena that use them.
using Tracers = std::vector<std::unique_ptr<PixelEngine>>;

/// The render in hand.
class FrameRender {
 public:
  FrameRender(juProject& project, const RenderSettings& settings, RenderControl& control,
              RenderStatistics& statistics)
      : project_(project),
        settings_(settings),
        control_(control),
        statistics_(statistics),
        start_(Seconds()) {}

  RenderOutcome Run() {
    if (!MakePlan()) return RenderOutcome::kFailed;
    if (settings_.threads > 0) SetNumThreads(settings_.threads);
    const int threads = trNumCoresToUse();
    RenderOutcome outcome = RenderOutcome::kFailed;
    WithThreads(threads, [&] { outcome = RunInArena(threads); });
    statistics_.seconds = Seconds() - start_;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    statistics_.peakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) << 10;
    return outcome;
  }

 private:
  bool MakePlan();
  bool MakeLayers();
  /// What makes the sums of two renders differ, besides size, seed and frame.
  std::uint64_t SceneKey() const;
  RenderOutcome RunInArena(int threads);
  std::unique_ptr<PixelEngine> MakeEngine(World& world) const;
  void RunPass(Pass pass, Film& film, World& world, Tracers& tracers);
  /// Whether a tile takes no more samples: it has all, or its noise is below the target.
  bool IsTileDone(int tile, const Film& film) const;
  bool IsPassDone(Pass pass, const Film& film) const;
  /// Counts what is done, for progress; whether that is all.
  bool CountDone(const Film& film);
  double FractionDone(const Film& film) const;
  bool Report(double fraction);
  bool TimeIsUp() const {
    return settings_.timeLimitSeconds > 0 && Seconds() - start_ > settings_.timeLimitSeconds;
  }
  std::string WriteOutput(const Film& film);
  RenderOutcome Stop(const Film& film);

  juProject& project_;
  const RenderSettings& settings_;
  RenderControl& control_;
  RenderStatistics& statistics_;
  double start_;
  trRenderNode defaults_;
  Plan plan_;
  CheckpointKey key_;
  std::unique_ptr<LightCache> lightCache_;  ///< what threads of the standard engine share
  unsigned long progressState_ = 0;
  std::atomic<std::uint64_t> tileSamplesDone_{0};
  std::uint64_t tileSamplesLeftOut_ = 0;  ///< by tiles that are done before they have all
  double lastReport_ = 0, lastWrite_ = 0;
  double traceStart_ = 0, fractionAtStart_ = 0;  ///< of tracing
  std::thread::id mainThread_ = std::this_thread::get_id();
  std::atomic<bool> outOfTime_{false};
};

bool FrameRender::MakePlan() {
  const trRenderNode* render = FindNode<trRenderNode>(project_, settings_.renderNode);
  if (!render && !settings_.renderNode.empty()) {
    trError("There is no render node '" + settings_.renderNode + "'.");
    return false;
  }
  if (!render) {
    trWarning("The project has no render node; the defaults of a new one hold.");
    render = &defaults_;
  }
  plan_.context = render;
  const trScopedErrorsWarningsContext context(render);
  const long width = settings_.width ? *settings_.width : render->Width();
  const long height = settings_.height ? *settings_.height : render->Height();
  if (width < 1 || height < 1 || static_cast<double>(width) * static_cast<double>(height) > kMaxPixels) {
    trError("A picture of " + std::to_string(width) + " by " + std::to_string(height) +
            " pixels can't be rendered.");
    return false;
  }
  plan_.width = static_cast<int>(width);
  plan_.height = static_cast<int>(height);
  plan_.samples = static_cast<int>(
      std::clamp<long>(settings_.samples ? *settings_.samples : render->Samples(), 1, 1 << 20));
  plan_.area = settings_.crop.value_or(PixelRect{0, 0, plan_.width, plan_.height});
  plan_.area = {std::max(plan_.area.x0, 0), std::max(plan_.area.y0, 0), std::min(plan_.area.x1, plan_.width),
                std::min(plan_.area.y1, plan_.height)};
  if (plan_.area.x0 >= plan_.area.x1 || plan_.area.y0 >= plan_.area.y1) {
    trError("The crop leaves no pixel of the picture.");
    return false;
  }
  plan_.engines = SettingsOf(*render, width * height);
  const bool isStandard = render->UsedEngine() == trRenderNode::kStandard;
  plan_.engine = settings_.engine.value_or(isStandard ? Engine::kStandard : Engine::kPath);
  plan_.noiseTarget = settings_.noiseLimit.value_or(render->NoiseTarget());
  plan_.leastSamples = static_cast<std::uint32_t>(std::clamp<long>(render->LeastSamples(), 2, 1 << 20));
  plan_.denoise = settings_.denoise.value_or(render->Denoise());
  plan_.transform = {render->Exposure(), render->SoftClip()};

  UpdateAnimation(&project_, settings_.frame);
  project_.SetParam("current_frame", settings_.frame, trWhoSystem);
  const trCameraNode* camera = settings_.camera.empty()
                                   ? dynamic_cast<const trCameraNode*>(project_.PActiveCameraNode())
                                   : FindNode<trCameraNode>(project_, settings_.camera);
  if (!camera) {
    if (!settings_.camera.empty()) {
      trError("There is no camera '" + settings_.camera + "'.");
      return false;
    }
    trWarning("The project has no camera; the view is from the origin along -z.");
    plan_.view.width = plan_.width;
    plan_.view.height = plan_.height;
    plan_.view.tanHalfVertical = plan_.view.tanHalfHorizontal * plan_.height / plan_.width;
  } else {
    plan_.view = camera->View(plan_.width, plan_.height);
    plan_.hasCamera = true;
    if (camera->IsAtItsTarget()) {
      const trScopedErrorsWarningsContext cameraContext(camera);
      trError("The camera stands at its target; it looks along its rotation instead.");
    }
  }
  return MakeLayers();
}

bool FrameRender::MakeLayers() {
  const std::vector<std::string>& known = LayerNames();
  for (const std::string& name : settings_.layers) {
    if (name == "all") {
      plan_.layers = known;
      return true;
    }
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      trError("There is no layer '" + name + "'.");
      return false;
    }
    plan_.layers.push_back(name);
  }
  if (plan_.denoise)
    for (const char* guide : {"albedo", "normal"})
      if (std::find(plan_.layers.begin(), plan_.layers.end(), guide) == plan_.layers.end())
        plan_.layers.push_back(guide);
  return true;
}

bool FrameRender::IsTileDone(int tile, const Film& film) const {
  const std::uint32_t samples = film.TileSamples(tile);
  if (samples >= static_cast<std::uint32_t>(plan_.samples)) return true;
  return plan_.noiseTarget > 0 && samples >= plan_.leastSamples && film.TileNoise(tile) < plan_.noiseTarget;
}

bool FrameRender::IsPassDone(Pass pass, const Film& film) const {
  for (int tile = 0; tile < film.NumTiles(); ++tile)
    if (film.TileSamples(tile) < pass.end && !IsTileDone(tile, film)) return false;
  return true;
}

bool FrameRender::CountDone(const Film& film) {
  std::uint64_t done = 0, leftOut = 0;
  int tilesDone = 0;
  for (int tile = 0; tile < film.NumTiles(); ++tile) {
    done += film.TileSamples(tile);
    if (!IsTileDone(tile, film)) continue;
    ++tilesDone;
    leftOut += plan_.samples - std::min<std::uint64_t>(film.TileSamples(tile), plan_.samples);
  }
  tileSamplesDone_ = done;
  tileSamplesLeftOut_ = leftOut;
  return tilesDone == film.NumTiles();
}

double FrameRender::FractionDone(const Film& film) const {
  return static_cast<double>(tileSamplesDone_ + tileSamplesLeftOut_) /
         (static_cast<double>(film.NumTiles()) * plan_.samples);
}

bool FrameRender::Report(double fraction) {
  auto* node = const_cast<trBase*>(plan_.context);
  // What went before the first sample says nothing of how long the others take.
  const double done = fraction - fractionAtStart_;
  const float remaining =
      done > 0.01 ? static_cast<float>((Seconds() - traceStart_) / done * (1 - fraction)) : -1.0f;
  return node->ReportProgress(progressState_, "Rendering", static_cast<float>(fraction), remaining) != 0;
}

std::unique_ptr<PixelEngine> FrameRender::MakeEngine(World& world) const {
  if (plan_.engine == Engine::kPath) return std::make_unique<PathTracer>(world, plan_.engines.path);
  return std::make_unique<StandardTracer>(world, plan_.engines.path, plan_.engines.indirect,
                                          plan_.engines.trace, *lightCache_);
}

void FrameRender::RunPass(Pass pass, Film& film, World& world, Tracers& tracers) {
  ParallelFor(static_cast<size_t>(film.NumTiles()), [&](size_t index) {
    const int tile = static_cast<int>(index);
    std::unique_ptr<PixelEngine>& tracer = tracers[ThreadSlot()];
    if (film.TileSamples(tile) >= pass.end || IsTileDone(tile, film)) return;
    if (control_.stop || control_.writeNow || outOfTime_) return;
    if (!tracer) tracer = MakeEngine(world);
    CameraSample samples[kSamplesTogether];
    const PathCounters before = tracer->Counters();
    const PixelRect rect = film.TileRect(tile);
    for (int y = rect.y0; y < rect.y1; ++y)
      for (int x = rect.x0; x < rect.x1; ++x) {
        tracer->SamplePixel(x, y, pass.begin, pass.end, samples);
        film.Add(x, y, samples, static_cast<int>(pass.end - pass.begin));
      }
    film.TileSamples(tile) = pass.end;
    tileSamplesDone_ += pass.end - pass.begin;
    const PathCounters after = tracer->Counters();
    std::atomic_ref(statistics_.cameraRays) += after.cameraRays - before.cameraRays;
    std::atomic_ref(statistics_.shadowRays) += after.shadowRays - before.shadowRays;
    std::atomic_ref(statistics_.bounceRays) += after.bounceRays - before.bounceRays;
    std::atomic_ref(statistics_.volumeSamples) += after.volumeSamples - before.volumeSamples;
    // The main thread renders too, and speaks for all.
    if (std::this_thread::get_id() != mainThread_) return;
    if (TimeIsUp() && pass.begin > 0) outOfTime_ = true;
    if (Seconds() - lastReport_ > 0.2) {
      lastReport_ = Seconds();
      if (!Report(FractionDone(film))) control_.stop = true;
    }
  });
}

std::string FrameRender::WriteOutput(const Film& film) {
  Picture picture = film.MakePicture();
  if (plan_.denoise) DenoisePicture(picture, film.MeanVariance());
  picture.metadata = {{"Software", std::string("ovstd ") + OV_VERSION},
                      {"DateTime", settings_.sceneTime},
                      {"ov:scene", settings_.sceneName},
                      {"ov:frame", ValueToText(trParamValue(settings_.frame))},
                      {"ov:samples", std::to_string(statistics_.samplesDone)},
                      {"ov:seed", std::to_string(settings_.seed)}};
  lastWrite_ = Seconds();
  return WritePicture(settings_.output, picture, plan_.transform);
}

RenderOutcome FrameRender::Stop(const Film& film) {
  std::string problem = WriteCheckpoint(CheckpointPath(settings_.output), key_, film);
  if (problem.empty() && statistics_.samplesDone > 0) problem = WriteOutput(film);
  if (problem.empty()) return RenderOutcome::kStopped;
  trError(problem);
  return RenderOutcome::kOutputFailed;
}

std::uint64_t FrameRender::SceneKey() const {
  // FNV-1a over the names, with an end to each.
  std::uint64_t key = settings_.projectHash;
  const auto add = [&key](const std::string& name) {
    for (size_t i = 0; i <= name.size(); ++i)
      key = (key ^ static_cast<unsigned char>(name.c_str()[i])) * 0x100000001b3ull;
  };
  add(settings_.renderNode);
  add(plan_.engine == Engine::kStandard ? "standard" : "path");
  add(settings_.camera);
  for (const std::string& layer : plan_.layers) add(layer);
  return key;
}

RenderOutcome FrameRender::RunInArena(int threads) {
  const trScopedErrorsWarningsContext context(plan_.context);
  key_ = {SceneKey(),      settings_.seed,
          settings_.frame, {plan_.area.x0, plan_.area.y0, plan_.area.x1, plan_.area.y1},
          plan_.width,     plan_.height};
  // The sums, and about twice as much to make a picture of them.
  const std::uint64_t budget = settings_.memoryBytes ? settings_.memoryBytes : FreeMemory() / 4 * 3;
  const std::uint64_t filmBytes = Film::BytesFor(plan_.area, plan_.layers) * 3;
  if (filmBytes > budget) {
    trError("The memory limit is too small for the picture's size.");
    return RenderOutcome::kMemoryLimit;
  }
  Film film(plan_.area, plan_.width, plan_.height, plan_.layers);
  const std::string checkpoint = CheckpointPath(settings_.output);
  if (settings_.resume != ResumeMode::kNever) {
    const CheckpointState state = ReadCheckpoint(checkpoint, key_, film);
    if (state == CheckpointState::kOther)
      trWarning(checkpoint + ": belongs to another project or frame, and is left alone");
    if (state == CheckpointState::kDamaged) trWarning(checkpoint + ": is damaged, and is left alone");
    if (state != CheckpointState::kLoaded && settings_.resume == ResumeMode::kRequire) {
      trError("There is no checkpoint to go on from.");
      return RenderOutcome::kFailed;
    }
  }

  Report(0);
  WorldSettings worldSettings;
  worldSettings.view = plan_.view;
  worldSettings.edgePixels = plan_.engines.edgePixels;
  worldSettings.pictureVertices = plan_.engines.pictureVertices;
  worldSettings.frame = settings_.frame;
  worldSettings.seed = settings_.seed;
  worldSettings.threads = threads;
  const double pixels = static_cast<double>(plan_.area.x1 - plan_.area.x0) * (plan_.area.y1 - plan_.area.y0);
  if (plan_.engine == Engine::kStandard) lightCache_ = MakeLightCache(pixels, budget - filmBytes);
  worldSettings.memoryBytes = budget - filmBytes;
  if (lightCache_) worldSettings.memoryBytes -= std::min(lightCache_->Bytes(), worldSettings.memoryBytes / 2);
  World world(project_, worldSettings, control_.stop);
  if (!world.Build()) return control_.stop ? Stop(film) : RenderOutcome::kFailed;
  if (world.Parts().IsEmpty()) trWarning("The project has no object to render; only the sky will show.");
  if (world.Suns().empty()) trWarning("The project has no light.");
  if (const trBase* object = plan_.hasCamera ? world.ObjectAroundEye() : nullptr)
    trError("The camera is inside " + object->NameAndPath() + ", below its surface.");
  Tracers tracers(NumThreadSlots());
  statistics_.vertices = world.Dicing().vertices;
  statistics_.displacements = world.Dicing().displacements;
  statistics_.diceSeconds = world.DiceSeconds();
  statistics_.gridBytes = world.Dicing().vertices * sizeof(GridVertex);

  CountDone(film);
  traceStart_ = Seconds();
  fractionAtStart_ = FractionDone(film);
  for (const Pass& pass : Passes(plan_.samples)) {
    bool isPassDone = false;
    while (!isPassDone) {
      RunPass(pass, film, world, tracers);
      isPassDone = IsPassDone(pass, film);
      if (control_.stop || outOfTime_) break;
      if (control_.writeNow.exchange(false))
        if (const std::string problem = WriteOutput(film); !problem.empty()) trWarning(problem);
    }
    if (control_.stop) return Stop(film);
    if (outOfTime_) break;
    statistics_.samplesDone = static_cast<int>(pass.end);
    if (CountDone(film)) break;
    const bool isFirst = pass.begin == 0, isLast = statistics_.samplesDone == plan_.samples;
    if (!settings_.writeEveryPass || isLast || !(isFirst || Seconds() - lastWrite_ > kSecondsBetweenWrites))
      continue;
    if (const std::string problem = WriteOutput(film); !problem.empty()) {
      trError(problem);
      return RenderOutcome::kOutputFailed;
    }
    if (isFirst) statistics_.firstPictureSeconds = Seconds() - start_;
  }
  if (const std::string problem = WriteOutput(film); !problem.empty()) {
    trError(problem);
    return RenderOutcome::kOutputFailed;
  }
  if (statistics_.firstPictureSeconds == 0) statistics_.firstPictureSeconds = Seconds() - start_;
  Film probe(plan_.area, plan_.width, plan_.height, plan_.layers);
  if (ReadCheckpoint(checkpoint, key_, probe) == CheckpointState::kLoaded) unlink(checkpoint.c_str());
  Report(1);
  return outOfTime_ ? RenderOutcome::kTimeLimit : RenderOutcome::kDone;
}

}  // namespace

RenderOutcome RenderFrame(juProject& project, const RenderSettings& settings, RenderControl& control,
                          RenderStatistics* statistics) {
  RenderStatistics local;
  RenderStatistics& used = statistics ? *statistics : local;
  used = RenderStatistics();
  try {
    return FrameRender(project, settings, control, used).Run();
  } catch (const std::bad_alloc&) {
    trError("The render ran out of memory.");
    return RenderOutcome::kMemoryLimit;
  } catch (const std::exception& problem) {
    trError(std::string("The render failed: ") + problem.what());
    return RenderOutcome::kFailed;
  }
}

}  // namespace ovhost
