// Baking a volume for other programs: through the members that a node with voxels offers.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "core/node.h"

namespace ovhost {

struct VdbExportOptions {
  std::string grid = "density";
  bool isHalf = true;
  const std::atomic<bool>* stop = nullptr;
  /// How far the job is, 0 to 1. One thread at a time.
  std::function<void(const std::string& text, double fraction)> progress;
};

struct VdbExport {
  int size[3] = {0, 0, 0};
  double edge[3] = {0, 0, 0};  ///< of a cell, metres
  std::int64_t cells = 0, activeCells = 0, bytes = 0;
  double bakeSeconds = 0, writeSeconds = 0;
};

/// Whether a node can be exported so.
OV_API bool HasVoxelServer(trBase& node);
/// Bakes the node's volume on all threads and writes its density, the mean of the three channels, as a fog
/// volume in metres. The project's shaders must be started. Empty, or why there is no file. Main thread only.
OV_API std::string ExportVdb(trBase& node, const std::string& path, const VdbExportOptions& options,
                             VdbExport& result);

}  // namespace ovhost
