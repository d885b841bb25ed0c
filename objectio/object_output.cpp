#include "objectio/object_output.h"

#include "core/output_file.h"
#include "core/scene.h"

long PutObjectFile(const char* writer, const trString& notOpened, const trString& path, const void* data,
                   std::size_t size) {
  switch (trWriteWholeFile(path, data, size)) {
    case trFileResult::kNotOpened:
      trError(notOpened);
      return 0;
    case trFileResult::kNotWritten:
      trError(trString(writer) + ": Unable to write file: " + path);
      return 0;
    case trFileResult::kWritten:
      break;
  }
  trLibraryAddObject(path, 1);
  return 1;
}

const trScene* FirstGroup(const trScene& scene, const char* writer) {
  const trGeomGroup* const group = scene.GetPGroup(1);
  if (group && group->Subscene()) return group->Subscene().get();
  trError(trString(writer) + ": There are no geometry groups in the object to be saved.");
  return nullptr;
}
