// The box that a cloud is exported in.
#include "atmosphere/cloud_layer_v2.h"

AnalyzeExportBoundsButton::AnalyzeExportBoundsButton(CloudLayerV2* cloud)
    : trGuiPushButton(cloud, "Analyze and Fit Box"), cloud_(cloud) {}

ResetExportBoundsButton::ResetExportBoundsButton(CloudLayerV2* cloud)
    : trGuiPushButton(cloud, "Reset Box to Max"), cloud_(cloud) {}

long ResetExportBoundsButton::OnPressed() { return cloud_->FitExportBounds(cloud_->CloudBoundingBox()); }

long CloudLayerV2::FitExportBounds(const trBoundingBox& box) {
  trBase* const linked = settings_.exportBounds.LinkedNode(true);
  if (!linked || box.IsEmpty()) return 0;
  const bool isMoved = linked->SetParam("translate", box.Centre(), trWhoUserIndirect) != 0;
  return linked->SetParam("scale", box.Size(), trWhoUserIndirect) && isMoved;
}
