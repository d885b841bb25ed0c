// The state of samplings outside of renders.
#include "core/shading_state.h"

#include "core/messages.h"
#include "core/project.h"
#include "host/node/node_data.h"
#include "host/node/shader_start.h"

trSamplingState::trSamplingState(const trBase& node) {
  trShadingInterface& si = ShadingInterface();
  si.SetFrame(static_cast<float>(node.GetCurrentFrame()));
  const juProject* const project = juProject::Of(&node);
  trBase* const camera = project ? project->PActiveCameraNode() : nullptr;
  if (const auto* view = camera ? static_cast<const trView*>(camera->RequestMember("view")) : nullptr) {
    view_ = *view;
    si.SetMainView(&view_);
    si.Eye() = si.RootEye() = view_.eye;
  }

  trRenderingInterface rendering(si.RenderState(), trNumCoresToUse(), si.PMainView(),
                                 trRenderContext::kFinal);
  for (trBase* each : ovhost::AllNodes(node.Root())) {
    auto* const shader = dynamic_cast<trShader*>(each);
    if (!shader || ovhost::IsStarted(*shader)) continue;
    const trScopedErrorsWarningsContext context(shader);
    started_.push_back(shader);
    if (!ovhost::StartShader(*shader, rendering)) trError("The shader could not be prepared.");
  }
}

trSamplingState::~trSamplingState() {
  trShadingInterface& si = ShadingInterface();
  trRenderingInterface rendering(si.RenderState(), trNumCoresToUse(), si.PMainView(),
                                 trRenderContext::kFinal);
  for (trShader* shader : started_) ovhost::FinishShader(*shader, rendering);
}
