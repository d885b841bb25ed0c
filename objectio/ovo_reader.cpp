#include "objectio/ovo_reader.h"

#include <filesystem>
#include <new>

#include "core/project.h"
#include "core/xml.h"
#include "objectio/input_file.h"

namespace {

/// Gives a node the shaders that a file brings along.
class ShaderClip : public OvoVisitor {
 public:
  explicit ShaderClip(trBase& node) : node_(node) {}

  void Shader(OvoBytes text, bool isWhole) override {
    if (IsRead(isWhole)) node_.SetParam("surface_shader", Text(text), &node_);
  }
  void Nodes(OvoBytes text, bool isWhole) override {
    if (IsRead(isWhole)) trBaseXML::ReadBuffer(&node_, Text(text));
  }

 private:
  static trString Text(OvoBytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
  static bool IsRead(bool isWhole) {
    if (!isWhole) trError("An error occurred while reading the object file.");
    return isWhole;
  }

  trBase& node_;
};

}  // namespace

OVOReader::OVOReader() {
  filenameHint_.AddFileFilter("Ombrivex Object Files", "*.ovo");
  DeclareObjectReaderTabbedParams();
}

long OVOReader::OnFirstCreate() {
  const long result = juObjectReader::OnFirstCreate();
  trString path = sourceFile_.FullPath();
  if (path.empty() && !juChooseFile({{"Ombrivex Object Files", {"ovo"}}, {"All files", {"*"}}}, path))
    return result;
  SetParam("filename", path, this);
  SetName(std::filesystem::path(path).filename().string());
  const trScopedErrorsWarningsContext context(this);
  ShaderClip clip(*this);
  if (Walk(path, clip)) LoadNow();
  return result;
}

long OVOReader::Walk(const trString& path, OvoVisitor& visitor) {
  if (path.empty()) return 0;
  trPrintDebugMessage("OVOReader: Attempting to open file: " + path);
  trErrorWarningData data;
  data.file = path;
  try {
    const InputFile file(path);
    if (!file.IsRead()) {
      trError("OVOReader: Unable to open file", &data);
      return 0;
    }
    bool isCut = false;
    const trString problem = WalkOvo(file.Bytes(), path, visitor, isCut);
    if (!problem.empty()) {
      trError(problem, &data);
      return 0;
    }
    if (isCut) trWarning("OVOReader: The file ends inside of a chunk, and lacks what should follow: " + path);
    return 1;
  } catch (const std::bad_alloc&) {
    trError("OVOReader: The file takes more memory than there is: " + path, &data);
    return 0;
  }
}

long OVOReader::ReadObjectFile(trScene& scene, const char* path, const trMaterial& material, bool reverse) {
  OvoGeometry geometry(scene, material, reverse);
  if (!Walk(path, geometry)) return 0;
  if (geometry.HadStrangeNumbers())
    trWarning(trString("OVOReader: Some coordinates are no finite numbers and are taken for 0: ") + path);
  if (geometry.LacksTriangles())
    trWarning(
        trString("OVOReader: A triangle has corners that its group doesn't hold; it and what follows it "
                 "there are left out: ") +
        path);
  scene.SetAllowsTriSubdivision(false);
  return 1;
}
