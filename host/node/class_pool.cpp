// The class pool, and modules: found, checked in a child process where they are foreign, loaded.
#include "host/node/class_pool.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "host/node/node_data.h"

struct trPluginStartupInfo {
  std::string module;
  bool refused = false;
  unsigned int version = 0;
};

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

std::string LibraryFolder() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<const void*>(&trDestroyObject), &info) || !info.dli_fname) return ".";
  std::error_code error;
  const auto path = std::filesystem::canonical(info.dli_fname, error);
  return error ? "." : path.parent_path().string();
}

/// What stands beside a module as NAME.catalogue: lines of `category | registered name | implementing class`.
void ReadPlannedRows(const std::filesystem::path& module) {
  std::ifstream in(std::filesystem::path(module).replace_extension(".catalogue"));
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const size_t a = line.find('|'), b = line.find('|', a + 1);
    if (a == std::string::npos || b == std::string::npos) continue;
    const auto trimmed = [](std::string text) {
      text.erase(0, text.find_first_not_of(' '));
      text.erase(text.find_last_not_of(' ') + 1);
      return text;
    };
    Planned().push_back(
        {trimmed(line.substr(0, a)), trimmed(line.substr(a + 1, b - a - 1)), trimmed(line.substr(b + 1))});
  }
}

long Refuse(const std::string& path, const std::string& why) {
  trError(path + ": " + why);
  return 0;
}

using Startup = long (*)(trPluginStartupInfo*);

long LoadHere(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return Refuse(path, std::string("the module can't be loaded: ") + dlerror());
  const auto startup = reinterpret_cast<Startup>(dlsym(handle, "trPluginStartup"));
  if (!startup) {
    dlclose(handle);
    return Refuse(path, "not a module: it has no trPluginStartup");
  }
  trPluginStartupInfo info{path};
  startup(&info);
  if (info.refused)
    return Refuse(path, "the module was built for SDK version " + std::to_string(info.version) +
                            "; this program takes version " + std::to_string(kOvSdkVersion));
  return 1;
}

/// Starts a foreign module up in a child process first, so that one that crashes costs a message.
long SurvivesLoading(const std::string& path) {
  const pid_t child = fork();
  if (child < 0) return 1;
  if (child == 0) {
    std::freopen("/dev/null", "w", stderr);
    LoadHere(path);
    _exit(0);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFSIGNALED(status)) return 1;
  return Refuse(path,
                "the module crashed while it was loaded (signal " + std::to_string(WTERMSIG(status)) + ")");
}

}  // namespace

const std::vector<CatalogueEntry>& Catalogue() { return Entries(); }
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

long LoadPlugin(const std::string& path) {
  const bool isOurs = std::filesystem::path(path).parent_path() == LibraryFolder();
  if (!isOurs && !SurvivesLoading(path)) return 0;
  const long loaded = LoadHere(path);
  if (loaded) ReadPlannedRows(path);
  return loaded;
}

int LoadPlugins() {
  std::vector<std::string> folders;
  if (const char* list = std::getenv("OV_PLUGIN_PATH")) {
    const std::string text = list;
    for (size_t begin = 0; begin <= text.size();) {
      const size_t end = std::min(text.find(':', begin), text.size());
      if (end > begin) folders.push_back(text.substr(begin, end - begin));
      begin = end + 1;
    }
  }
  folders.push_back(LibraryFolder());
  int refused = 0;
  std::set<std::string> seen;
  for (const std::string& folder : folders) {
    std::vector<std::string> modules;
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(folder, error))
      if (file.path().extension() == ".ovp") modules.push_back(file.path().string());
    std::sort(modules.begin(), modules.end());
    for (const std::string& module : modules)
      if (seen.insert(std::filesystem::path(module).filename().string()).second)
        refused += !LoadPlugin(module);
  }
  return refused;
}

}  // namespace ovhost

trPluginToken::trPluginToken(trPluginStartupInfo* info, const trPluginSdkVersion& version, const char*)
    : info_(info) {
  if (!info_) return;
  info_->version = version.Version();
  info_->refused = version.Version() != kOvSdkVersion;
}

long trPluginToken::AddClass(const trString& category, const trString& className, trBase* (*create)(),
                             void (*destroy)(trBase*), const trString&) {
  if (!info_ || info_->refused || className.empty() || !create || !destroy) return 0;
  ovhost::Entries().push_back({category, className, info_->module, create, destroy});
  return 1;
}

trClassPool trClasses;

void trClassPool::AddClassNameRedirect(const trString& oldName, const trString& newName) {
  ovhost::Redirects()[oldName] = newName;
}
