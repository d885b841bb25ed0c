// The class pool, and where modules are found.
#include "host/node/class_pool.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <unordered_set>

#include "host/base/library_folder.h"
#include "host/base/plain_file.h"
#include "host/node/module_loader.h"
#include "host/node/module_trial.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

std::vector<CatalogueEntry>& Entries() {
  static std::vector<CatalogueEntry> entries;
  return entries;
}
std::map<std::string, std::string>& Redirects() {
  static std::map<std::string, std::string> redirects;
  return redirects;
}
std::vector<PlannedRow>& Planned() {
  static std::vector<PlannedRow> rows;
  return rows;
}

/// How long a module may take to register and to make a node of each class, on a slow network disc.
constexpr int kTrialSeconds = 10;
constexpr std::uint64_t kLongestCatalogue = 16 << 20;

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// What stands beside a module as NAME.catalogue.
void ReadPlannedRows(const std::filesystem::path& module) {
  const std::string path = std::filesystem::path(module).replace_extension(".catalogue").string();
  std::string text, problem;
  if (!ReadPlainFile(path, kLongestCatalogue, text, problem)) return;
  for (PlannedRow& row : ParseCatalogue(text)) Planned().push_back(std::move(row));
}

bool LoadAndEnter(const std::string& path, bool isOurs, std::string& problem) {
  if (!isOurs && !SurvivesTrial(path, kTrialSeconds, problem)) return false;
  trPluginStartupInfo info;
  return LoadModule(path, info, problem) && EnterIntoPool(info, problem);
}

/// A module's file and whether it lies beside this library, where nobody who couldn't replace the library
/// puts one.
struct ModuleFile {
  std::filesystem::path path;
  bool isOurs;
};

/// Modules of a folder, by name.
void AddModules(const std::string& folder, bool isOurs, std::vector<ModuleFile>& modules) {
  const size_t first = modules.size();
  std::error_code error;
  for (std::filesystem::directory_iterator file(folder, error), end; !error && file != end;
       file.increment(error))
    if (file->path().extension() == ".ovp") modules.push_back({file->path(), isOurs});
  std::sort(modules.begin() + static_cast<std::ptrdiff_t>(first), modules.end(),
            [](const ModuleFile& a, const ModuleFile& b) { return a.path < b.path; });
}

}  // namespace

const std::vector<CatalogueEntry>& Catalogue() { return Entries(); }

std::vector<std::string> AllClassNames() {
  std::vector<std::string> names;
  std::unordered_set<std::string> seen;
  for (const CatalogueEntry& entry : Entries())
    if (seen.insert(entry.className).second) names.push_back(entry.className);
  return names;
}
const std::vector<PlannedRow>& PlannedRows() { return Planned(); }

const CatalogueEntry* FindClass(const std::string& className) {
  const auto redirect = Redirects().find(className);
  const std::string& wanted = redirect == Redirects().end() ? className : redirect->second;
  for (const CatalogueEntry& entry : Entries())
    if (entry.className == wanted) return &entry;
  return nullptr;
}

void RegisterHostClass(const std::string& category, const std::string& className, trBase* (*create)(),
                       void (*destroy)(trBase*)) {
  Entries().push_back({category, className, "", create, destroy});
}

std::vector<PlannedRow> ParseCatalogue(const std::string& text) {
  std::vector<PlannedRow> rows;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const size_t a = line.find('|'), b = line.find('|', a + 1);
    if (a == std::string::npos || b == std::string::npos) continue;
    rows.push_back(
        {Trimmed(line.substr(0, a)), Trimmed(line.substr(a + 1, b - a - 1)), Trimmed(line.substr(b + 1))});
  }
  return rows;
}

bool EnterIntoPool(const trPluginStartupInfo& info, std::string& problem) {
  const auto taken = [&](const std::string& name, const std::string& owner) {
    problem = "the module registers \"" + name + "\", which is " +
              (owner.empty() ? "this program's own" : owner + "'s");
    return false;
  };
  for (const CatalogueEntry& entry : info.entries)
    if (const CatalogueEntry* const known = FindClass(entry.className))
      return taken(entry.className, known->module);
  for (const auto& [oldName, newName] : info.redirects)
    if (const CatalogueEntry* const known = FindClass(oldName)) return taken(oldName, known->module);
  Entries().insert(Entries().end(), info.entries.begin(), info.entries.end());
  for (const auto& [oldName, newName] : info.redirects) Redirects()[oldName] = newName;
  return true;
}

long LoadPlugin(const std::string& path) {
  // Who loads a module again has it already.
  static std::set<std::string> loaded;
  std::error_code error;
  const std::string file = std::filesystem::canonical(path, error).string();
  if (!error && loaded.count(file)) return 1;
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::string problem;
  if (!LoadAndEnter(path, folder == LibraryFolder(), problem)) {
    trError(path + ": " + problem);
    return 0;
  }
  loaded.insert(file);
  ReadPlannedRows(path);
  return 1;
}

int LoadPlugins() {
  // Ours first: another's module can add to its classes, not stand in for them.
  std::vector<ModuleFile> modules;
  AddModules(LibraryFolder().string(), true, modules);
  if (const char* list = std::getenv("OV_PLUGIN_PATH")) {
    std::istringstream in(list);
    for (std::string folder; std::getline(in, folder, ':');)
      if (!folder.empty()) AddModules(folder, false, modules);
  }
  int refused = 0;
  // Of several of a name in the folders named the first counts, as with programs; none counts for ours.
  std::map<std::string, ModuleFile> seen;
  for (const ModuleFile& module : modules) {
    const auto [first, isNew] = seen.emplace(module.path.filename().string(), module);
    std::error_code error;
    if (isNew) {
      refused += !LoadPlugin(module.path.string());
    } else if (first->second.isOurs && !std::filesystem::equivalent(first->second.path, module.path, error)) {
      trError(module.path.string() + ": not loaded, for one of this program's own modules has that name");
      ++refused;
    }
  }
  return refused;
}

}  // namespace ovhost

trClassPool trClasses;
