// Object writers: which one writes a file, and the list of what was written.
#include "core/object_writer.h"

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "core/scene.h"
#include "core/scene_maker.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/scene/object_files.h"
#include "host/scene/ply_file.h"

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

bool ovhost::IsObjectPath(const std::string& path) {
  const std::string extension = Extension(path);
  return extension == "ply" || (extension != "err" && FindClass("object_writer_" + extension));
}

long ovhost::WriteSceneFile(trScene& scene, trSceneMaker* maker, const std::string& path,
                            const std::vector<std::pair<std::string, std::string>>& writerParams) {
  const std::string extension = Extension(path), className = "object_writer_" + extension;
  if (extension == "ply") {
    const trGeomGroup* const group = scene.GetPGroup(1);
    const std::string problem =
        group ? WritePly(*group->Subscene(), path) : path + ": there is no geometry to be written";
    if (!problem.empty()) return trError(problem), 0;
    return trLibraryAddObject(path, 1), 1;
  }
  trBase* const node = FindClass(className) ? CreateNode(className, nullptr, "", false) : nullptr;
  auto* const writer = dynamic_cast<trObjectWriter*>(node);
  long result = 0;
  if (writer) {
    for (const auto& [name, value] : writerParams) node->SetParamFromString(name.c_str(), value, trWhoSystem);
    result = writer->WriteObject(scene, maker, path);
  } else {
    trError(path + ": no object writer is installed for files of this kind.");
  }
  DestroyNode(node);
  return result;
}

long trScene::WriteObjectFile(trSceneMaker* maker, const char* path, long* status) {
  if (status) *status = 0;
  const long result = ovhost::WriteSceneFile(*this, maker, path, {});
  if (status) *status = result;
  return result;
}
