// The project node.
#include "core/project.h"

#include "core/heightfield.h"
#include "core/ocio.h"
#include "host/node/node_data.h"
#include "host/project/render_node.h"

juProject::juProject() {
  DeclareTrue("is_project");
  Param(startFrame_, "start_frame", 1);
  Param(endFrame_, "end_frame", 100);
  Param(currentFrame_, "current_frame", 1.0);
  Param(framesPerSecond_, "frames_per_second", 25.0);
  Param(activeShadableObject_, "active_shadable_object", "");
  GuiTab("Colour management", "colour_management_tab");
  // The space first: projects are read in this order, and a configuration is held against it.
  Param(ocioInputSpace_, "ocio_input_space", "sRGB").Display("Colour space of images");
  Param(ocioConfig_, "ocio_config", "").Display("OpenColorIO configuration");
  Data().className = "ombrivex_project";
}

void juProject::OnParamChanged(long index, trBase* who) {
  trBase::OnParamChanged(index, who);
  if (IsParam(index, &ocioConfig_) || IsParam(index, &ocioInputSpace_))
    trOcio::gProjectSettings.Set(ocioConfig_.FullPath(), ocioInputSpace_);
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

void juProject::OpenHfView(trHeightfield* heightfield) {
  if (!heightfield || !heightfield->HfOperateTS()) return;
  const auto metres = [](double value) { return ovhost::ValueToText(value) + " m"; };
  trPrintMessage(heightfield->NameAndPath() + ": " + std::to_string(heightfield->HfXPnts()) + " x " +
                 std::to_string(heightfield->HfYPnts()) + " points, " + metres(heightfield->HfScaledXSize()) +
                 " x " + metres(heightfield->HfScaledYSize()) + ", heights " +
                 metres(heightfield->HfMinHeight()) + " to " + metres(heightfield->HfMaxHeight()));
}

namespace {
juFileChooser fileChooser = nullptr;
}

bool juChooseFile(const std::vector<juFileFilterItem>& filters, trString& path) {
  return fileChooser && fileChooser(filters, path);
}
void juSetFileChooser(juFileChooser chooser) { fileChooser = chooser; }

void PreNodePaste(trBase*) {}
void PostNodePaste(trBase* parent) {
  if (parent) ovhost::ResolveAllLinks(parent->Root());
}
void trRequest3DPreviewUpdate() { OV2SendMessageToCore(nullptr, 1, nullptr); }
