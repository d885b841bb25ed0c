// From a project's render node and camera to a plan.
#include "host/render/frame/render_plan.h"

#include <algorithm>

#include "host/node/node_data.h"
#include "host/project/camera.h"
#include "host/render/frame/deep_film.h"
#include "host/render/frame/film.h"

namespace ovhost {
namespace {

/// Pictures past this many pixels are refused: their film alone would not fit.
constexpr double kMaxPixels = 4e8;

template <typename T>
T* FindNode(juProject& project, const std::string& wanted) {
  if (!wanted.empty()) return dynamic_cast<T*>(project.NodeByPath(wanted));
  for (trBase* node : AllNodes(&project))
    if (auto* found = dynamic_cast<T*>(node)) return found;
  return nullptr;
}

bool TakeRenderNode(juProject& project, const RenderJobSettings& settings, RenderPlan& plan) {
  // The node, or one that has the defaults.
  const auto* render = FindNode<trRenderNode>(project, settings.renderNode);
  if (!render && !settings.renderNode.empty()) {
    trError("There is no render node '" + settings.renderNode + "'.");
    return false;
  }
  if (!render) {
    trWarning("The project has no render node; the defaults of a new one hold.");
    const auto defaults = std::make_shared<trRenderNode>();
    plan.defaults = defaults;
    render = defaults.get();
  }
  plan.context = render;

  // The picture: how large, which part of it, how many samples.
  const trScopedErrorsWarningsContext context(render);
  const long width = settings.width ? *settings.width : render->Width();
  const long height = settings.height ? *settings.height : render->Height();
  if (width < 1 || height < 1 || static_cast<double>(width) * static_cast<double>(height) > kMaxPixels) {
    trError("A picture of " + std::to_string(width) + " by " + std::to_string(height) +
            " pixels can't be rendered.");
    return false;
  }
  plan.width = static_cast<int>(width);
  plan.height = static_cast<int>(height);
  plan.samples = static_cast<int>(
      std::clamp<long>(settings.samples ? *settings.samples : render->Samples(), 1, 1 << 20));
  plan.area = settings.crop.value_or(PixelRect{0, 0, plan.width, plan.height});
  plan.area = {std::max(plan.area.x0, 0), std::max(plan.area.y0, 0), std::min(plan.area.x1, plan.width),
               std::min(plan.area.y1, plan.height)};
  if (plan.area.x0 >= plan.area.x1 || plan.area.y0 >= plan.area.y1) {
    trError("The crop leaves no pixel of the picture.");
    return false;
  }

  // How it is rendered, and shown.
  plan.engines = SettingsOf(*render, static_cast<double>(width * height));
  const bool isStandard = render->UsedEngine() == trRenderNode::kStandard;
  plan.engine = settings.engine.value_or(isStandard ? Engine::kStandard : Engine::kPath);
  plan.noiseTarget = settings.noiseLimit.value_or(render->NoiseTarget());
  plan.leastSamples = static_cast<std::uint32_t>(std::clamp<long>(render->LeastSamples(), 2, 1 << 20));
  plan.denoise = settings.denoise.value_or(render->Denoise());
  plan.transform = {render->Exposure(), render->SoftClip()};
  return true;
}

bool TakeCamera(juProject& project, const RenderJobSettings& settings, RenderPlan& plan) {
  const auto* render = static_cast<const trRenderNode*>(plan.context);
  const trBase* const usual = render->Camera() ? render->Camera() : project.PActiveCameraNode();
  const auto* camera = settings.camera.empty() ? dynamic_cast<const trCameraNode*>(usual)
                                               : FindNode<trCameraNode>(project, settings.camera);
  const trScopedErrorsWarningsContext context(camera ? camera : plan.context);
  if (!camera && !settings.camera.empty()) {
    trError("There is no camera '" + settings.camera + "'.");
    return false;
  }
  if (!camera) {
    trWarning("The project has no camera; the view is from the origin along -z.");
    plan.view.width = plan.width;
    plan.view.height = plan.height;
    plan.view.tanHalfVertical = plan.view.tanHalfHorizontal * plan.height / plan.width;
    return true;
  }
  plan.view = camera->View(plan.width, plan.height);
  plan.hasCamera = true;
  if (camera->IsAtItsTarget())
    trError("The camera stands at its target; it looks along its rotation instead.");
  return true;
}

bool TakeDepths(const RenderJobSettings& settings, RenderPlan& plan) {
  plan.deepSamples = std::clamp(settings.deepSamples, 0, kMostDeepSamples);
  if (plan.deepSamples > 0) {
    plan.denoise = false;
    if (!settings.layers.empty()) {
      const trScopedErrorsWarningsContext context(plan.context);
      trError("A deep picture has no further layers.");
      return false;
    }
  }
  const auto wants = [&plan](const char* layer) {
    return std::find(plan.layers.begin(), plan.layers.end(), layer) != plan.layers.end();
  };
  plan.engines.path.recordsSteps = plan.deepSamples > 0 || wants("volume_opacity") || wants("volume_depth");
  return true;
}

bool TakeLayers(const RenderJobSettings& settings, RenderPlan& plan) {
  const std::vector<std::string>& known = LayerNames();
  for (const std::string& name : settings.layers) {
    if (name == "all") {
      plan.layers = known;
      return true;
    }
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      const trScopedErrorsWarningsContext context(plan.context);
      trError("There is no layer '" + name + "'.");
      return false;
    }
    plan.layers.push_back(name);
  }
  if (plan.denoise)
    for (const char* guide : {"albedo", "normal"})
      if (std::find(plan.layers.begin(), plan.layers.end(), guide) == plan.layers.end())
        plan.layers.push_back(guide);
  return true;
}

bool IsSame(const trView& a, const trView& b) {
  return a.eye == b.eye && a.right == b.right && a.up == b.up && a.forward == b.forward &&
         a.tanHalfHorizontal == b.tanHalfHorizontal && a.tanHalfVertical == b.tanHalfVertical &&
         a.width == b.width && a.height == b.height && a.nearClip == b.nearClip;
}

}  // namespace

bool MakeRenderPlan(juProject& project, const RenderJobSettings& settings, RenderPlan& plan) {
  plan = RenderPlan();
  return TakeRenderNode(project, settings, plan) && TakeCamera(project, settings, plan) &&
         TakeLayers(settings, plan) && TakeDepths(settings, plan);
}

Redo RenderPlan::Towards(const RenderPlan& other) const {
  // Surfaces are cut for the view.
  if (!IsSame(view, other.view) || engines.edgePixels != other.engines.edgePixels ||
      engines.pictureVertices != other.engines.pictureVertices ||
      engines.compensatesEnergy != other.engines.compensatesEnergy)
    return Redo::kGeometry;
  if (engines.cloudSteps != other.engines.cloudSteps) return Redo::kShading;
  if (engine != other.engine || !(engines == other.engines) || !(area == other.area) ||
      layers != other.layers || deepSamples != other.deepSamples)
    return Redo::kSamples;
  const bool isSame = samples == other.samples && leastSamples == other.leastSamples &&
                      noiseTarget == other.noiseTarget && denoise == other.denoise &&
                      transform == other.transform && context == other.context;
  return isSame ? Redo::kNothing : Redo::kPicture;
}

}  // namespace ovhost
