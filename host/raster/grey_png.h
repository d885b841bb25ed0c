// Grey pictures of rasters, of any size in little memory.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/raster/height_grid.h"

namespace ovhost {

struct GreyPng {
  std::int64_t width = 0, height = 0;
  int bits = 8;  ///< or 16
  std::vector<std::pair<std::string, std::string>> texts;
  /// Fills row `y` from the top, a value a pixel. Called from several threads.
  std::function<void(std::int64_t y, std::uint16_t* row)> row;
};

/// Writes atomically, packed by `threads` threads to the same bytes for any number of them. Empty, or why the
/// file isn't there.
OV_API std::string WriteGreyPng(const std::string& path, const GreyPng& picture, int threads,
                                const WorkProgress& progress);

}  // namespace ovhost
