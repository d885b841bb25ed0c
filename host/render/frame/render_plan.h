// What a frame is made with: the render node's settings under those of whoever asks.
#pragma once

#include <memory>

#include "core/project.h"
#include "core/render_state.h"
#include "host/image/picture.h"
#include "host/render/engine/engine_settings.h"
#include "host/render/frame/render_settings.h"

namespace ovhost {

/// What has to be made again, from least to most; each brings all before it.
enum class Redo {
  kNothing,
  kPicture,   ///< the picture from the film: exposure, denoising, how many samples there are to be
  kSamples,   ///< all samples, by new settings of the engine
  kShading,   ///< what shaders, suns and volumes prepare; no surface moves
  kGeometry,  ///< everything
};

struct RenderPlan {
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
  int deepSamples = 0;                     ///< that a pixel has at most; 0 for a flat picture
  const trBase* context = nullptr;         ///< the render node, whom messages and progress speak of
  std::shared_ptr<const trBase> defaults;  ///< that node, where the project has none

  /// What a film made by this plan lacks for another.
  Redo Towards(const RenderPlan& other) const;
};

/// Makes the plan of a project that is at its frame. False with an error reported. Main thread only.
bool MakeRenderPlan(juProject& project, const RenderJobSettings& settings, RenderPlan& plan);

}  // namespace ovhost
