// What elevation files claim of their size, held against their length: a few bytes may claim gigabytes.
#pragma once

#include <cstdint>
#include <string>

namespace ovhost {

/// A raster as a file's header tells it.
struct RasterClaim {
  std::string format;  ///< GDAL's name of it
  std::int64_t width = 0, height = 0, bands = 1;
  int bits = 8;  ///< of a value
  std::uint64_t fileBytes = 0;
};

/// Empty, or why a file of that length can't hold the raster.
std::string ClaimProblem(const RasterClaim& claim);

/// Empty, or why a TGA's bytes aren't all of its picture: GDAL takes what is missing for zeros. Reads a file
/// of run lengths from end to end.
std::string TgaProblem(const std::string& path);

}  // namespace ovhost
