// Modules: registered as a whole or not at all, and tried out in a process of their own before that.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/plugin.h"
#include "host/node/class_pool.h"

/// What a module registers while it starts up. It counts once the module is accepted.
struct trPluginStartupInfo {
  std::string module;
  void* library = nullptr;
  bool isAnnounced = false;  ///< it has opened its registration
  unsigned int version = 0;  ///< of the headers that it was built against
  std::vector<ovhost::CatalogueEntry> entries;
  std::vector<std::pair<std::string, std::string>> redirects;  ///< old class name, new one
};

namespace ovhost {

/// Loads a module here and lets it register. False with the reason in `problem`; whatever it did then, the
/// pool has nothing of it. Main thread only.
bool LoadModule(const std::string& path, trPluginStartupInfo& info, std::string& problem);

}  // namespace ovhost
