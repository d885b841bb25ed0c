// Object writers: which one writes a file, and the list of what was written.
#include "core/object_writer.h"

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "core/scene.h"
#include "core/scene_maker.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace {

std::mutex libraryMutex;
std::vector<trString> library;

/// The path's extension in lower case, without its dot.
std::string Extension(const trString& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  for (char& c : extension)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return extension;
}

}  // namespace

void trLibraryAddObject(const trString& path, long) {
  const std::lock_guard lock(libraryMutex);
  if (std::find(library.begin(), library.end(), path) == library.end()) library.push_back(path);
}

std::vector<trString> trLibraryObjects() {
  const std::lock_guard lock(libraryMutex);
  return library;
}

long trScene::WriteObjectFile(trSceneMaker* maker, const char* path, long* status) {
  if (status) *status = 0;
  const std::string className = "object_writer_" + Extension(path);
  trBase* const node =
      ovhost::FindClass(className) ? ovhost::CreateNode(className, nullptr, "", false) : nullptr;
  auto* const writer = dynamic_cast<trObjectWriter*>(node);
  long result = 0;
  if (writer)
    result = writer->WriteObject(*this, maker, path);
  else
    trError(trString(path) + ": no object writer is installed for files of this kind.");
  ovhost::DestroyNode(node);
  if (status) *status = result;
  return result;
}
