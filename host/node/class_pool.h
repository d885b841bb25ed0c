// The pool of registered classes and the loading of modules.
#pragma once

#include <string>
#include <vector>

#include "core/plugin.h"

struct trPluginStartupInfo;

namespace ovhost {

struct CatalogueEntry {
  std::string category, className, module;
  trBase* (*create)() = nullptr;
  void (*destroy)(trBase*) = nullptr;
  bool IsHidden() const { return category.rfind("hidden", 0) == 0; }
};

/// Everything registered, in registration order, host classes first. Main thread only.
OV_API const std::vector<CatalogueEntry>& Catalogue();
/// The first entry of a class, redirects followed; null if there is none.
OV_API const CatalogueEntry* FindClass(const std::string& className);
/// The names of all registered classes, each once, in registration order. Main thread only.
OV_API std::vector<std::string> AllClassNames();
/// Registers one of the host's own classes.
OV_API void RegisterHostClass(const std::string& category, const std::string& className, trBase* (*create)(),
                              void (*destroy)(trBase*));

/// A row of the catalogue a module is planned to have.
struct PlannedRow {
  std::string category, className, implementation;
};
/// The planned rows of the modules loaded, from the `.catalogue` text beside each.
OV_API const std::vector<PlannedRow>& PlannedRows();

/// The rows of such a text, lines of `category | registered name | implementing class`. Thread-safe.
OV_API std::vector<PlannedRow> ParseCatalogue(const std::string& text);

/// Enters what a module has registered into the pool. False with the reason where a name is taken.
bool EnterIntoPool(const trPluginStartupInfo& info, std::string& problem);

/// Loads every `.ovp` of the folder of this library, then of those in OV_PLUGIN_PATH. Another's module is
/// tried out in a child process first: one that crashes, ends the process, hangs, throws, tells another SDK
/// version or failure, makes no nodes of its classes, or registers names that are taken is refused as a
/// whole, with an error. So is one that has the file name of ours. Returns how many were refused. Main thread
/// only.
OV_API int LoadPlugins();
/// Loads one module; 0 with an error reported where it is refused. Main thread only.
OV_API long LoadPlugin(const std::string& path);

}  // namespace ovhost
