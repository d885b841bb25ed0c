// Presses the buttons of a chain of heightfields in order.
#include "host/raster/heightfield_run.h"

#include <filesystem>
#include <unordered_set>
#include <vector>

#include "host/base/atomic_file.h"
#include "host/base/log.h"
#include "host/node/node_data.h"
#include "host/raster/heightfield_load.h"
#include "host/raster/heightfield_walk.h"

namespace ovhost {
namespace {

/// What the node's links lead to.
std::vector<trBase*> LinkedNodes(const trBase& node) {
  std::vector<trBase*> linked;
  for (const trParamInfo& param : node.Data().params)
    if (param.type >= trParamType::kNodeLink)
      if (trBase* other = static_cast<const trFile*>(param.member)->LinkedNode(true)) linked.push_back(other);
  return linked;
}

/// All heightfields that `wanted` depends on, and itself last. A ring is cut where it closes; the
/// heightfields in it tell of it when they operate.
std::vector<trHeightfield*> InOrder(trHeightfield& wanted) {
  struct Step {
    trBase* node;
    std::vector<trBase*> linked;
    std::size_t next = 0;
  };
  std::vector<trHeightfield*> order;
  std::unordered_set<trBase*> seen = {&wanted};
  std::vector<Step> path;
  path.push_back({&wanted, LinkedNodes(wanted)});
  while (!path.empty()) {
    Step& step = path.back();
    if (step.next < step.linked.size()) {
      trBase* linked = step.linked[step.next++];
      if (seen.insert(linked).second) path.push_back({linked, LinkedNodes(*linked)});
      continue;
    }
    if (auto* heightfield = dynamic_cast<trHeightfield*>(step.node)) order.push_back(heightfield);
    path.pop_back();
  }
  return order;
}

trGuiPushButton* ButtonOf(const trBase& node, const std::string& name) {
  for (const trSheetItem& item : node.Data().sheet)
    if (item.kind == trSheetItem::kButton && item.button && item.name == name) return item.button;
  return nullptr;
}

/// The button that makes the node compute, where a flag keeps it from doing so by itself.
trGuiPushButton* ComputeButton(const trBase& node) {
  long index = 0;
  if (node.FindParam(index, "auto_generate")) return ButtonOf(node, "generate_button");
  if (node.FindParam(index, "auto_calculate")) return ButtonOf(node, "calculate_button");
  return nullptr;
}

/// What a costly operator or a file takes, in those of others.
constexpr double kCostly = 10;

bool IsCostly(const trBase& node) {
  return ComputeButton(node) || dynamic_cast<const trHeightfieldLoad*>(&node);
}

bool ComputesByItself(const trBase& node) {
  if (!ComputeButton(node)) return true;
  long isOn = 0;
  return (node.GetParam("auto_generate", isOn) || node.GetParam("auto_calculate", isOn)) && isOn != 0;
}

}  // namespace

HeightfieldRun RunHeightfield(trHeightfield& wanted, const std::atomic<bool>& stop) {
  using Outcome = HeightfieldRun::Outcome;
  for (trHeightfield* node : InOrder(wanted)) {
    const trScopedErrorsWarningsContext context(node);
    trGuiPushButton* button = ComputeButton(*node);
    if (button) button->OnPressed();
    if (stop) return {Outcome::kStopped, node, button && node->HfXPnts() > 0};
    // Also after a press: what it left counts as up to date, and its inputs may have failed.
    const long isMade = node->HfOperateTS();
    // Some keep what they have done in use.
    if (stop) return {Outcome::kStopped, node, node->HfIsValid() && node->HfXPnts() > 0};
    if (!isMade) return {Outcome::kFailed, node, false};
  }
  // One that couldn't be allocated counts as up to date all the same.
  return {wanted.HfXPnts() > 0 ? Outcome::kDone : Outcome::kFailed, &wanted, false};
}

std::vector<HeightfieldStage> StagesOf(trHeightfield& wanted) {
  std::vector<HeightfieldStage> stages;
  for (const trHeightfield* node : InOrder(wanted)) stages.push_back({node, IsCostly(*node) ? kCostly : 1});
  return stages;
}

std::vector<HeightfieldStage> PendingHeightfields(trBase* root) {
  std::vector<HeightfieldStage> stages;
  std::unordered_set<const trBase*> seen;
  for (trBase* user : AllNodes(root)) {
    if (dynamic_cast<trHeightfield*>(user)) continue;
    for (trHeightfield* used : LinkedHeightfields(*user))
      for (const trHeightfield* node : InOrder(*used))
        if (IsCostly(*node) && !node->HfIsValid() && ComputesByItself(*node) && seen.insert(node).second)
          stages.push_back({node, kCostly});
  }
  return stages;
}

trHeightfield* HeightfieldOf(trBase& node) {
  if (auto* heightfield = dynamic_cast<trHeightfield*>(&node)) return heightfield;
  long index = 0;
  if (!node.FindParam(index, "heightfield") || node.ParamType(index) < trParamType::kNodeLink) return nullptr;
  const auto* link = static_cast<const trFile*>(node.ParamPtr(index));
  return dynamic_cast<trHeightfield*>(link->LinkedNode(true));
}

std::string ExportLwo(trHeightfield& heightfield, const std::string& path) {
  AtomicFile file(path);
  if (!file.Problem().empty()) return file.Problem();
  trBase* exporter = CreateNode("heightfield_export_LWO", heightfield.Root(), "", false);
  if (!exporter) return path + ": no module that writes LWO files is loaded";
  exporter->SetParam("input_node", heightfield.NameAndPath(), trWhoSystem);
  exporter->SetParam("filename", std::filesystem::absolute(file.TemporaryPath()).string(), trWhoSystem);
  trGuiPushButton* button = ButtonOf(*exporter, "export_button");
  const bool isPressed = button && button->OnPressed();
  DestroyNode(exporter);
  std::error_code error;
  if (!isPressed || std::filesystem::file_size(file.TemporaryPath(), error) == 0)
    return path + ": can't be written";
  file.Adopt();
  return file.Commit();
}

}  // namespace ovhost
