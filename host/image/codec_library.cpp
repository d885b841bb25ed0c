// Loading of libovimage.so from beside the host library.
#include "host/image/codec_library.h"

#include <dlfcn.h>

#include <filesystem>

namespace ovhost {

void* CodecFunction(const char* name, std::string& problem) {
  static void* const library = [] {
    Dl_info self;
    std::error_code error;
    std::filesystem::path folder;
    if (dladdr(reinterpret_cast<const void*>(&CodecFunction), &self) && self.dli_fname)
      folder = std::filesystem::canonical(self.dli_fname, error).parent_path();
    return dlopen((folder / "libovimage.so").c_str(), RTLD_LAZY | RTLD_LOCAL);
  }();
  void* const function = library ? dlsym(library, name) : nullptr;
  if (!function) {
    const char* const why = dlerror();
    problem = std::string("the picture formats can't be loaded: ") + (why ? why : "see the first failure");
  }
  return function;
}

}  // namespace ovhost
