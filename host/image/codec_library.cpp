// Loading of libovimage.so from beside the host library.
#include "host/image/codec_library.h"

#include <dlfcn.h>

#include <mutex>

#include "host/base/library_folder.h"
#include "host/base/parallel.h"

namespace ovhost {
namespace {

/// What the logging library behind Debian 12's OpenImageIO starts while it is loaded, and some to spare:
/// where it can't start them, it never comes back.
constexpr int kThreadsOfLibraries = 8;

void* Load(std::string& problem) {
  if (StartableThreads(kThreadsOfLibraries) < kThreadsOfLibraries)
    return problem = "no threads can be started for them", nullptr;
  void* const library = dlopen((LibraryFolder() / "libovimage.so").c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (!library) problem = dlerror();
  return library;
}

}  // namespace

void* CodecFunction(const char* name, std::string& problem) {
  static std::mutex mutex;
  static void* library = nullptr;
  const std::lock_guard lock(mutex);
  if (!library) library = Load(problem);
  void* const function = library ? dlsym(library, name) : nullptr;
  if (library && !function) problem = dlerror();
  if (!function) problem = "the picture formats can't be loaded: " + problem;
  return function;
}

}  // namespace ovhost
