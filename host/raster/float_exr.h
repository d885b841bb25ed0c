// OpenEXR pictures of one channel of floats, of any size in little memory.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/raster/height_grid.h"

namespace ovhost {

struct FloatExr {
  std::int64_t width = 0, height = 0;
  std::string channel;                                          ///< at most 31 letters
  std::vector<std::pair<std::string, std::string>> attributes;  ///< names of at most 31 letters, texts
  /// Fills row `y` from the top. Called from several threads.
  std::function<void(std::int64_t y, float* row)> row;
};

/// Writes atomically, packed by `threads` threads to the same bytes for any number of them. Empty, or why the
/// file isn't there.
std::string WriteFloatExr(const std::string& path, const FloatExr& picture, int threads,
                          const WorkProgress& progress);

}  // namespace ovhost
