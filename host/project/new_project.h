// Projects to begin with.
#pragma once

#include <memory>
#include <string>

#include "core/project.h"

namespace ovhost {

/// A new project: camera, sun, sky light, planet with its default network, compute terrain, render node. Null
/// with an error where the planet's module isn't loaded.
OV_API std::unique_ptr<juProject> NewDefaultProject();

/// Adds to such a project what `what` names, set up to be seen, and moves the camera there: "populator",
/// rocks (or whatever can be populated with) on the ground. False with an error reported.
OV_API bool AddToProject(juProject& project, const std::string& what);

}  // namespace ovhost
