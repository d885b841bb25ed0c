// `ov convert`: meshes of other programs become objects, and older projects today's.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "app/export_object.h"
#include "app/project_options.h"
#include "core/messages.h"
#include "host/base/log.h"
#include "host/object/mesh_object.h"
#include "host/project/project_file.h"
#include "host/scene/object_files.h"

namespace ovapp {
namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

struct Options {
  std::string input, output, up = "auto";
  double scale = 0, weld = 0;
  bool ascii = false, json = false;
};

std::string Extension(const std::string& path) {
  std::string extension = fs::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return extension;
}

int ConvertProject(const Options& options) {
  if (Extension(options.output) != ".ovd") throw Failure{kBadUsage, options.output + ": projects are ovd"};
  ProjectOptions project;
  project.path = options.input;
  const ovhost::ErrorWatch errors;
  const std::unique_ptr<Session> session = OpenSession(project);
  const std::string problem = ovhost::SaveProject(session->Project(), options.output);
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
  trPrintMessage(options.output + ": written");
  return CodeOf(errors);
}

/// A node below `project` for an object of our own, with the shaders that it brings along.
trBase& OpenObject(juProject& project, const std::string& path) {
  static std::string chosen;
  chosen = fs::absolute(path).lexically_normal().string();
  juSetFileChooser(
      [](const std::vector<juFileFilterItem>&, trString& answer) { return answer = chosen, true; });
  const ovhost::ErrorWatch errors;
  trBase* const node = project.CreateChild("ovo_reader");
  juSetFileChooser(nullptr);
  if (!node || errors.HasErrors()) throw Failure{kInvalidProject, path + ": can't be read"};
  return *node;
}

int ConvertObject(const Options& options) {
  if (Extension(options.output) == ".ovd") {
    const std::unique_ptr<juProject> project = ovhost::NewDefaultProject();
    if (!project) return kFailed;
    OpenObject(*project, options.input);
    const std::string problem = ovhost::SaveProject(*project, options.output);
    if (!problem.empty()) throw Failure{kOutputFailed, problem};
    trPrintMessage(options.output + ": written");
    return kDone;
  }
  juProject project;
  ObjectExport object;
  object.output = options.output;
  object.ascii = options.ascii;
  object.json = options.json;
  return ExportObject(OpenObject(project, options.input), object);
}

ovhost::MeshReadOptions ReadOptions(const Options& options) {
  ovhost::MeshReadOptions read;
  read.scale = options.scale;
  read.weld = options.weld;
  read.up = options.up == "y"   ? ovhost::MeshUp::kY
            : options.up == "z" ? ovhost::MeshUp::kZ
                                : ovhost::MeshUp::kFilesOwn;
  return read;
}

void Print(const Options& options, const ovhost::ForeignMesh& mesh, long materials, double seconds) {
  const char* const up = mesh.up == ovhost::MeshUp::kZ ? "z" : "y";
  if (options.json) {
    const Json json = {{"file", options.output},
                       {"points", mesh.points.size()},
                       {"triangles", mesh.triangles.size()},
                       {"materials", materials},
                       {"metres_per_unit", mesh.metresPerUnit},
                       {"up", up},
                       {"seconds", seconds}};
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    return;
  }
  char text[240];
  std::snprintf(text, sizeof text,
                ": written; %zu points, %zu triangles, %ld materials; %g m a unit, %s up; %.1f s",
                mesh.points.size(), mesh.triangles.size(), materials, mesh.metresPerUnit, up, seconds);
  trPrintMessage(options.output + text);
}

int ConvertMesh(const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  const ovhost::ErrorWatch errors;
  ovhost::ForeignMesh mesh;
  const std::string problem = ovhost::ReadMeshFile(options.input, ReadOptions(options), mesh);
  if (!problem.empty()) throw Failure{kInvalidProject, options.input + ": " + problem};
  if (mesh.leftOut > 0)
    trWarning(options.input + ": " + std::to_string(mesh.leftOut) +
              " points and lines are no surface and are left out");
  juProject project;
  trScene scene;
  trSceneMaker* const maker = ovhost::MakeMeshObject(project, options.input, mesh, scene);
  if (!maker) return kFailed;
  const trScene& object = *scene.GetPGroup(1)->Subscene();
  const long materials = object.NumMaterials();
  if (!ovhost::WriteSceneFile(scene, maker, options.output, {{"ascii", options.ascii ? "1" : "0"}}))
    return kOutputFailed;
  Print(options, mesh, materials,
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  return CodeOf(errors);
}

int Run(Program&, const Options& options) {
  fs::path folder = fs::path(options.output).parent_path();
  if (folder.empty()) folder = ".";
  std::error_code error;
  if (!fs::is_directory(folder, error))
    throw Failure{kOutputFailed,
                  options.output + ": can't be written: there is no folder " + folder.string()};
  if (ovhost::LoadModules() > 0) return kFailed;
  const std::string extension = Extension(options.input);
  if (extension == ".ovd") return ConvertProject(options);
  const bool toProject = extension == ".ovo" && Extension(options.output) == ".ovd";
  if (!toProject && !ovhost::IsObjectPath(options.output))
    throw Failure{kBadUsage, options.output + ": objects are ovo, obj, fbx, lwo or ply"};
  return extension == ".ovo" ? ConvertObject(options) : ConvertMesh(options);
}

}  // namespace

void AddConvert(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add(
      "convert", "Make an object of another program's mesh, or a project today's",
      "ov convert tree.obj -o tree.ovo\n  ov convert tree.ovo -o scene.ovd\n  ov convert old.ovd -o new.ovd",
      options, Run);
  command
      ->add_option(
          "input", options->input,
          "A mesh (OBJ, FBX, glTF, PLY, STL, LWO and what else Assimp reads), an object (.ovo), or a project")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Object (.ovo, .obj, .fbx, .lwo, .ply); a project (.ovd) of a project, or a new one round "
                   "an object")
      ->required();
  command
      ->add_option("--scale", options->scale,
                   "Metres in a unit of the mesh; by default the file's word, or 1")
      ->check(CLI::PositiveNumber);
  command->add_option("--up", options->up, "Axis of the mesh that points up; auto is the file's word, or y")
      ->check(CLI::IsMember({"auto", "y", "z"}))
      ->capture_default_str();
  command
      ->add_option("--weld", options->weld,
                   "Make points nearer than this to each other one, metres; the same ones are")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--ascii", options->ascii, "Write FBX as text");
  command->add_flag("--json", options->json, "Print what was written as JSON");
}

}  // namespace ovapp
