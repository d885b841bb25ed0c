// What a project's pictures are made from besides its nodes.
#pragma once

#include <cstdint>

#include "core/project.h"

namespace ovhost {

/// Stands for the contents of all files that parameters of the project name, and for the program with its
/// modules: where it is the same, so is what comes of the project. Large files are known by size and time of
/// change. Main thread only.
OV_API std::uint64_t InputStamps(juProject& project);

}  // namespace ovhost
