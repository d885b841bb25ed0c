// Asking the loader.
#include "host/base/library_folder.h"

#include <dlfcn.h>

namespace ovhost {

std::filesystem::path LibraryFolder() {
  Dl_info self;
  std::error_code error;
  if (!dladdr(reinterpret_cast<const void*>(&LibraryFolder), &self) || !self.dli_fname) return ".";
  const auto path = std::filesystem::canonical(self.dli_fname, error);
  return error ? "." : path.parent_path();
}

}  // namespace ovhost
