// The project node.
#include "core/project.h"

#include "host/node/node_data.h"
#include "host/project/render_node.h"

juProject::juProject() {
  DeclareTrue("is_project");
  Param(startFrame_, "start_frame", 1);
  Param(endFrame_, "end_frame", 100);
  Param(currentFrame_, "current_frame", 1.0);
  Param(framesPerSecond_, "frames_per_second", 25.0);
  Param(activeShadableObject_, "active_shadable_object", "");
  Data().className = "ombrivex_project";
}

// Nodes below may look at the project while they end, so they go while it still is one.
juProject::~juProject() {
  while (NumChildren() > 0) ovhost::DestroyNode(Child(NumChildren() - 1));
}

juProject* juProject::Of(const trBase* node) {
  return node ? dynamic_cast<juProject*>(node->Root()) : nullptr;
}

void juProject::SetActiveShadableObject(trBase* object) {
  SetParam("active_shadable_object", object ? object->NameAndPath() : trString(), trWhoSystem);
}

trBase* juProject::PActiveCameraNode() const {
  trBase* firstCamera = nullptr;
  for (trBase* node : ovhost::AllNodes(const_cast<juProject*>(this))) {
    if (const auto* render = dynamic_cast<const trRenderNode*>(node))
      if (trBase* camera = render->Camera()) return camera;
    if (!firstCamera && node->IsTrue("is_camera")) firstCamera = node;
  }
  return firstCamera;
}

void PreNodePaste(trBase*) {}
void PostNodePaste(trBase* parent) {
  if (parent) ovhost::ResolveAllLinks(parent->Root());
}
void trRequest3DPreviewUpdate() { OV2SendMessageToCore(nullptr, 1, nullptr); }
