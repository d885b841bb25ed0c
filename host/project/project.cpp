// The project node.
#include "core/project.h"

#include "core/heightfield.h"
#include "core/ocio.h"
#include "host/node/node_data.h"
#include "host/project/render_node.h"

juProject::juProject() {
  DeclareTrue("is_project");
  Param(startFrame_, "start_frame", 1)
      .About("First frame of the animation: where a render of all frames begins.");
  Param(endFrame_, "end_frame", 100).About("Last frame of the animation: where a render of all frames ends.");
  Param(currentFrame_, "current_frame", 1.0)
      .About(
          "Frame at which animated parameters stand. A render that names no frames takes this one, rounded.");
  Param(framesPerSecond_, "frames_per_second", 25.0)
      .About("Playing speed of the animation. It is kept with the project; no picture depends on it.");
  Param(activeShadableObject_, "active_shadable_object", "")
      .About(
          "The planet whose ground and altitudes nodes mean where none is named. The first planet made takes "
          "the place.");
  GuiTab("Colour management", "colour_management_tab");
  // The space first: projects are read in this order, and a configuration is held against it.
  Param(ocioInputSpace_, "ocio_input_space", "sRGB")
      .Display("Colour space of images")
      .About("Colour space that image files are stored in, by its name in the OpenColorIO configuration.");
  Param(ocioConfig_, "ocio_config", "")
      .Display("OpenColorIO configuration")
      .About(
          "Colour configuration by which images become linear, a file. Left empty, each image's own gamma "
          "does that.");
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
