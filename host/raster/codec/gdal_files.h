// Files beside a raster's own.
#pragma once

#include <cpl_string.h>

#include <filesystem>

namespace ovhost {

/// The file and the headers that may lie beside it: all that GDAL is told there is in the folder.
CPLStringList FilesBeside(const std::filesystem::path& path);

}  // namespace ovhost
