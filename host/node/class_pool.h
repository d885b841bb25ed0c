// The pool of registered classes and the loading of modules.
#pragma once

#include <string>
#include <vector>

#include "core/plugin.h"

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
/// Registers one of the host's own classes.
OV_API void RegisterHostClass(const std::string& category, const std::string& className, trBase* (*create)(),
                              void (*destroy)(trBase*));

/// A row of the catalogue a module is planned to have.
struct PlannedRow {
  std::string category, className, implementation;
};
/// The planned rows of the modules loaded, from the `.catalogue` text beside each.
OV_API const std::vector<PlannedRow>& PlannedRows();

/// Loads every `.ovp` of the folders in OV_PLUGIN_PATH, then of the folder of this library, each file name
/// once. A module of another SDK version, without the entry, or that crashes while it loads is refused with
/// an error. Returns how many were refused.
OV_API int LoadPlugins();
/// Loads one module; 0 with an error reported where it is refused.
OV_API long LoadPlugin(const std::string& path);

}  // namespace ovhost
