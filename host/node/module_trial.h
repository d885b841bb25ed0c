// Modules tried out in a process of their own.
#pragma once

#include <string>

#include "core/api.h"

namespace ovhost {

/// Loads a module in a child process, lets it register, makes and destroys a node of every class there and
/// unloads the module again. False with the reason where the module doesn't live through that within
/// `seconds`. Main thread only.
OV_API bool SurvivesTrial(const std::string& path, int seconds, std::string& problem);

}  // namespace ovhost
