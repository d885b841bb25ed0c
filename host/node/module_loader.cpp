// Loading of a module into this process.
#include "host/node/module_loader.h"

#include <dlfcn.h>

#include <exception>

#include "host/base/plain_file.h"

namespace ovhost {
namespace {

/// The module that starts up now: redirects don't say whose they are.
trPluginStartupInfo* starting = nullptr;

std::string VersionProblem(const trPluginStartupInfo& info) {
  return "the module was built for SDK version " + std::to_string(info.version) +
         "; this program takes version " + std::to_string(kOvSdkVersion);
}

bool CallStartup(void* library, trPluginStartupInfo& info, std::string& problem) {
  using Startup = long (*)(trPluginStartupInfo*);
  const auto startup = reinterpret_cast<Startup>(dlsym(library, "trPluginStartup"));
  if (!startup) return problem = "not a module: it has no trPluginStartup", false;
  starting = &info;
  long result = 0;
  try {
    result = startup(&info);
  } catch (const std::exception& exception) {
    problem = std::string("the module threw an exception when it was started up: ") + exception.what();
  } catch (...) {
    problem = "the module threw an exception when it was started up";
  }
  starting = nullptr;
  if (!problem.empty()) return false;
  if (!info.isAnnounced) return problem = "the module doesn't tell which SDK version it was built for", false;
  if (info.version != kOvSdkVersion) return problem = VersionProblem(info), false;
  if (result != 1)
    return problem = "the module's start-up returned " + std::to_string(result) + " instead of 1", false;
  return true;
}

}  // namespace

bool LoadModule(const std::string& path, trPluginStartupInfo& info, std::string& problem) {
  // The loader of libraries would wait at a pipe for ever.
  if (!IsPlainFile(path, problem)) return false;
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) return problem = std::string("the module can't be loaded: ") + dlerror(), false;
  info.module = path;
  info.library = library;
  if (CallStartup(library, info, problem)) return true;
  info = {};
  dlclose(library);
  return false;
}

}  // namespace ovhost

trPluginToken::trPluginToken(trPluginStartupInfo* info, const trPluginSdkVersion& version, const char*)
    : info_(info) {
  if (!info_) return;
  info_->isAnnounced = true;
  info_->version = version.Version();
}

long trPluginToken::AddClass(const trString& category, const trString& className, trBase* (*create)(),
                             void (*destroy)(trBase*), const trString&) {
  if (!info_ || info_->version != kOvSdkVersion || className.empty() || !create || !destroy) return 0;
  info_->entries.push_back({category, className, info_->module, create, destroy});
  return 1;
}

void trClassPool::AddClassNameRedirect(const trString& oldName, const trString& newName) {
  if (ovhost::starting) ovhost::starting->redirects.emplace_back(oldName, newName);
}
