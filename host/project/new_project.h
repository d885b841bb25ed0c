// Projects to begin with.
#pragma once

#include <memory>

#include "core/project.h"

namespace ovhost {

/// A new project: camera, sun, sky light, planet with its default network, compute terrain, render node. Null
/// with an error where the planet's module isn't loaded.
OV_API std::unique_ptr<juProject> NewDefaultProject();

}  // namespace ovhost
