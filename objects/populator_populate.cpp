// populator_v3: from its object and area to records of instances.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <tuple>

#include "core/memory_budget.h"
#include "core/parallel.h"
#include "core/project.h"
#include "core/shading_state.h"
#include "objects/network_stamp.h"
#include "objects/populator.h"

namespace {

/// Candidates that a thread evaluates at a go, and goes between two reports of progress.
constexpr std::int64_t kChunk = 64 * kDrawLanes, kChunks = 64;
/// Tells the application that a variation's scene was made.
constexpr unsigned long kVariationMade = 10056;

/// Scenes of a node's variations; those that were made are told apart by the node's own selection.
class VariationScope {
 public:
  VariationScope(trSceneMaker& maker, long variation) : maker_(maker) {
    maker_.current_variation = variation;
  }
  ~VariationScope() { maker_.current_variation = 0; }
  VariationScope(const VariationScope&) = delete;
  VariationScope& operator=(const VariationScope&) = delete;

 private:
  trSceneMaker& maker_;
};

/// How many places a grid has, also where that is a number without end.
trString PlacesText(double nx, double nz) {
  const double count = nx * nx * nz * nz;
  if (count < 1e19) {
    const auto x = static_cast<std::uint64_t>(nx), z = static_cast<std::uint64_t>(nz);
    return trCountText(x * x * z * z);
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", count);
  return text;
}

}  // namespace

/// One population on its way. What was there before goes when it begins.
class Populator3::Populating {
 public:
  explicit Populating(Populator3& node) : node_(node) { node_.isPopulating_ = true; }
  ~Populating() {
    trDestroyObject(sphere_);
    node_.isPopulating_ = false;
  }
  Populating(const Populating&) = delete;
  Populating& operator=(const Populating&) = delete;

  long Run(const trView* clipView) {
    layout_.clipView = clipView;
    if (!HasSpacing()) return 0;
    Report("Populator: Creating Instances", 0);
    if (!FindShaders()) return 0;
    return MakeVariations() && MakeRecords() ? Finish() : 0;
  }

 private:
  void Report(const trString& text, double fraction) {
    if (!node_.ReportProgress(token_, text, static_cast<float>(fraction), -1.0f)) isCancelled_ = true;
  }
  long Fail(const trString& text) {
    trError(text);
    node_.ReportProgress(token_, "", 1, -1.0f);
    return 0;
  }

  bool HasSpacing() {
    if (node_.spacing_.x > 0 && node_.spacing_.y > 0) return true;
    trError(node_.Name() + " has an object spacing that is 0 or smaller. Population will not take place.");
    return false;
  }

  bool FindShaders() {
    if (node_.useDensityShader_) {
      layout_.density = LinkedShader(node_.densityShader_);
      if (!layout_.density) return Fail(node_.Name() + " uses a density shader, and none is linked.");
    }
    if (!node_.sitOnTerrain_) return true;
    const trBase* const planet = node_.planet_.LinkedNode();
    trVector centre;
    double radius;
    if (planet && planet->IsTrue("is_planet") && planet->GetParam("centre", centre) &&
        planet->GetParam("radius", radius)) {
      sphere_ = trCreateObject("sphere_geometry_shader", &node_, 0);
      if (sphere_) {
        sphere_->SetParam("centre", centre, &node_);
        sphere_->SetParam("radius", radius, &node_);
      }
      layout_.planet = dynamic_cast<trShader*>(sphere_);
    }
    layout_.terrain = LinkedShader(node_.terrainShader_);
    return true;
  }

  /// The scenes of the object's variations, each made once.
  bool MakeVariations() {
    trSceneMaker* const object = node_.ObjectMaker();
    // Its copies would be one inside of the other, and the camera inside of them all.
    if (object && object->IsTrue("is_planet"))
      return Fail(object->Name() + " is a planet, and planets can't be populated with.");
    if (!object) trWarning("There is no object to populate with: the instances are empty.");
    const long count = object && object->SupportsVariations() ? std::max(1L, object->NumVariations()) : 1;
    node_.SetParam("unique_variations", count, &node_);
    const char* const noMemory = "Populator: Unable to allocate scene data for unique variations!";
    // An empty scene has about so many bytes.
    constexpr std::uint64_t kSceneBytes = 1024;
    if (static_cast<std::uint64_t>(count) > trMemoryBudget() / kSceneBytes) return Fail(noMemory);
    try {
      node_.scenes_.clear();
      node_.scenes_.resize(static_cast<std::size_t>(count));
      for (auto& scene : node_.scenes_) scene = std::make_shared<trScene>();
    } catch (const std::bad_alloc&) {
      node_.scenes_.clear();
      return Fail(noMemory);
    }
    for (long v = 0; v < count && !isCancelled_; ++v)
      if (!MakeVariation(object, v)) return false;
    for (const auto& scene : node_.scenes_) layout_.boxes.push_back(scene->BoundingBoxT());
    return true;
  }

  bool MakeVariation(trSceneMaker* object, long variation) {
    trScene& scene = *node_.scenes_[static_cast<std::size_t>(variation)];
    if (!scene.Init()) return node_.ReportProgress(token_, "", 1, -1.0f), false;
    if (object) {
      const VariationScope scope(*object, variation);
      if (!object->Make(scene, kInstance)) return false;
      scene.PrepForRender();
    }
    scene.SortElements({0, 1, 0}, true);
    OV2SendMessageToCore(&node_, kVariationMade, nullptr);
    return true;
  }

  /// The layout, but for what stands in it already. False where it has too many candidates.
  bool FillLayout() {
    const double nx = CellsByBlock(node_.areaSize_.x, node_.spacing_.x),
                 nz = CellsByBlock(node_.areaSize_.y, node_.spacing_.y);
    if (!(nx * nx * nz * nz <= kMostCandidates)) {
      trError(node_.Name() + " has " + PlacesText(nx, nz) + " places for instances, and " +
              trCountText(static_cast<std::uint64_t>(kMostCandidates)) +
              " are the most. Population will not take place.");
      return false;
    }
    layout_.grid = {static_cast<std::int64_t>(nx), static_cast<std::int64_t>(nz)};
    layout_.seed = static_cast<std::uint32_t>(node_.seed_);
    layout_.spacing = node_.spacing_;
    layout_.area = node_.areaSize_;
    layout_.randomness = node_.randomness_;
    std::tie(layout_.loScale, layout_.hiScale) = std::minmax(node_.minimumScale_, node_.maximumScale_);
    std::tie(layout_.loTurn, layout_.hiTurn) = std::minmax(node_.minimumTurn_, node_.maximumTurn_);
    layout_.worldFromArea = node_.worldFromArea_;
    layout_.samplesBeforeTransform = node_.sampleBeforeTransform_ != 0;
    layout_.leanEffect = node_.leansToNormal_ ? node_.leanEffect_ : 0;
    layout_.minSlope = node_.slopeOfMinLean_;
    layout_.fullSlope = node_.slopeOfFullLean_;
    layout_.invertsDensity = node_.invertDensityShader_ != 0;
    return true;
  }

  /// What threads have for themselves.
  struct Worker {
    trShadingState state;
    explicit Worker(trShadingInterface& like, unsigned slot) {
      trShadingInterface& si = state.ShadingInterface();
      si.SetThread(slot);
      si.SetFrame(like.Frame());
      si.SetMainView(like.PMainView());
      si.Eye() = like.Eye();
      si.RootEye() = like.RootEye();
    }
  };
  struct Chunk {
    std::vector<InstanceRecord> records;
    CandidateFaults faults;
  };

  bool MakeRecords() {
    if (!node_.instances_.Make()) return Fail("Populator: Unable to allocate memory for particle data");
    if (!FillLayout()) return false;
    const std::int64_t count = layout_.grid.Count();
    mostInstances_ = trMemoryBudget() / BytesOf(1);
    // Where nothing is rejected that much is known beforehand.
    if (!layout_.density && !layout_.clipView && static_cast<std::uint64_t>(count) > mostInstances_)
      return Refuse(static_cast<std::uint64_t>(count));

    trSamplingState sampling(node_);
    trShadingInterface& like = sampling.ShadingInterface();
    workers_.resize(static_cast<std::size_t>(trMaxThreads()));
    std::vector<Chunk> chunks(kChunks);
    for (std::int64_t from = 0; from < count && !isCancelled_;) {
      Report("Populator: Creating Instances, " + std::to_string(accepted_) + " so far...",
             static_cast<double>(from) / static_cast<double>(count));
      if (isCancelled_) break;
      const std::int64_t here = std::min<std::int64_t>(kChunks, (count - from + kChunk - 1) / kChunk);
      trParallelFor(here, [&](long i, unsigned slot) {
        auto& worker = workers_[slot];
        if (!worker) worker = std::make_unique<Worker>(like, slot);
        const std::int64_t begin = from + i * kChunk;
        EvaluateChunk(begin, std::min(begin + kChunk, count), worker->state.ShadingInterface().RenderState(),
                      chunks[static_cast<std::size_t>(i)]);
      });
      for (std::int64_t i = 0; i < here; ++i)
        if (!Keep(chunks[static_cast<std::size_t>(i)])) isCancelled_ = true;
      from += here * kChunk;
    }
    return accepted_ <= mostInstances_ || Refuse(accepted_);
  }

  void EvaluateChunk(std::int64_t begin, std::int64_t end, trRenderState& state, Chunk& chunk) const {
    chunk.records.clear();
    chunk.faults = {};
    for (; begin < end; begin += kDrawLanes) {
      const CandidateDraws draws(layout_.seed + static_cast<std::uint32_t>(begin));
      const auto lanes = static_cast<int>(std::min<std::int64_t>(kDrawLanes, end - begin));
      for (int lane = 0; lane < lanes; ++lane)
        if (const auto record = layout_.Evaluate(begin + lane, draws, lane, state, chunk.faults))
          chunk.records.push_back(*record);
    }
  }

  /// Past the budget instances are only counted, so that their number can be told. False for want of memory.
  bool Keep(const Chunk& chunk) {
    faults_.nowhere += chunk.faults.nowhere;
    faults_.noDensity += chunk.faults.noDensity;
    accepted_ += chunk.records.size();
    if (accepted_ > mostInstances_) {
      node_.instances_.Clear();
      return true;
    }
    return std::all_of(chunk.records.begin(), chunk.records.end(),
                       [this](const InstanceRecord& record) { return node_.instances_.Add(record); });
  }

  static std::uint64_t BytesOf(std::uint64_t instances) {
    return instances * sizeof(InstanceRecord) + trBytesOfCopies(instances);
  }

  bool Refuse(std::uint64_t instances) {
    node_.instances_.Clear();
    trRefuseCopies(node_.Name(), instances, BytesOf(instances));
    return false;
  }

  long Finish() {
    if (faults_.nowhere)
      trWarning(trCountText(static_cast<std::uint64_t>(faults_.nowhere)) +
                " places for instances aren't finite, and stay empty.");
    if (faults_.noDensity)
      trWarning("The density isn't a number at " +
                trCountText(static_cast<std::uint64_t>(faults_.noDensity)) +
                " places for instances, which stay empty.");
    trPrintMessage(std::to_string(node_.instances_.Count()) + " objects created by Populator \"" +
                   node_.Name() + "\"");
    node_.ReportProgress(token_, "Populator: Done", 1, -1.0f);
    node_.bytes_ = node_.instances_.Bytes();
    node_.wasCancelled_ = isCancelled_;
    node_.isDirty_ = node_.repopulateEveryFrame_ != 0;
    trRequest3DPreviewUpdate();
    return 1;
  }

  Populator3& node_;
  trBase* sphere_ = nullptr;  ///< owned
  PopulationLayout layout_;
  unsigned long token_ = 0;
  bool isCancelled_ = false;
  std::vector<std::unique_ptr<Worker>> workers_;  ///< by slot
  std::uint64_t accepted_ = 0, mostInstances_ = 0;
  CandidateFaults faults_;
};

trSceneMaker* Populator3::ObjectMaker() const {
  trBase* const object = objectMaker_.LinkedNode();
  return object && object->IsTrue("is_scene_maker") ? dynamic_cast<trSceneMaker*>(object) : nullptr;
}

const trView* Populator3::ClipView() {
  if (!clipToCamera_) return nullptr;
  const juProject* const project = juProject::Of(this);
  trBase* const camera = project ? project->PActiveCameraNode() : nullptr;
  if (camera != clippingCamera_.LinkedNode())
    SetParam("clipping_camera", camera ? camera->Name() : trString(), this);
  return camera ? static_cast<const trView*>(camera->RequestMember("view")) : nullptr;
}

long Populator3::GenerateOrRead() {
  const trScopedErrorsWarningsContext context(this);
  if (isPopulating_) {
    trError("The object to populate with leads back to the populator itself.");
    return 0;
  }
  wasCancelled_ = false;
  const trView* const clipView = ClipView();
  const std::uint64_t stamp = NetworkStamp({objectMaker_.LinkedNode(), terrainShader_.LinkedNode(),
                                            useDensityShader_ ? densityShader_.LinkedNode() : nullptr});
  if (!isDirty_ && stamp == stamp_) return 1;
  isDirty_ = true;
  scenes_.clear();
  instances_.Clear();
  bytes_ = 0;
  long result = 0;
  try {
    result = Populating(*this).Run(clipView);
  } catch (const std::bad_alloc&) {
    trError("Populator: Unable to allocate memory for particle data");
  } catch (const std::exception& problem) {
    trError(trString("Populator: ") + problem.what());
  }
  if (!result) {
    scenes_.clear();
    instances_.Clear();
  }
  stamp_ = stamp;
  return result;
}
