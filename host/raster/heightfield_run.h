// Making a heightfield for good: whatever it depends on is computed, costly operators included.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "core/heightfield.h"

namespace ovhost {

struct HeightfieldRun {
  enum class Outcome {
    kDone,
    kFailed,  ///< `last` couldn't be made; messages tell why
    kStopped  ///< by `stop`, while `last` was being made
  } outcome = Outcome::kDone;
  trHeightfield* last = nullptr;
  /// kStopped: `last` keeps what had been done, as a raster in use.
  bool leavesRaster = false;
};

/// Brings `wanted` up to date with all that it depends on through links of any kind, inputs first. Operators
/// that wait for a button (generate_button, calculate_button) have it pressed, whatever their flags say.
/// `stop` is what ends long work, and is only looked at. Main thread only.
OV_API HeightfieldRun RunHeightfield(trHeightfield& wanted, const std::atomic<bool>& stop);

/// A heightfield that takes a while to be made.
struct HeightfieldStage {
  const trBase* node;
  double weight;  ///< of the time, roughly: most operators take 1
};
/// What RunHeightfield makes, in order. Main thread only.
OV_API std::vector<HeightfieldStage> StagesOf(trHeightfield& wanted);
/// The costly ones among the heightfields that other nodes of a project use, as far as a render will have to
/// make them. Main thread only.
OV_API std::vector<HeightfieldStage> PendingHeightfields(trBase* root);

/// The heightfield itself, or the one that a node's parameter `heightfield` leads to; null for other nodes.
OV_API trHeightfield* HeightfieldOf(trBase& node);

/// Writes a heightfield that is up to date as an LWO mesh, with the class that exports them. Empty, or why
/// the file isn't there. Main thread only.
OV_API std::string ExportLwo(trHeightfield& heightfield, const std::string& path);

}  // namespace ovhost
