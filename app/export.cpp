// `ov export`: writes volumes, objects and diced surfaces for other programs.
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "app/export_object.h"
#include "app/progress.h"
#include "app/project_options.h"
#include "app/signals.h"
#include "app/units.h"
#include "core/messages.h"
#include "host/base/log.h"
#include "host/session/evaluator.h"
#include "host/voxel/vdb_export.h"

namespace ovapp {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
  ProjectOptions project;
  ObjectExport object;
  std::string node, grid = "density";
  int bits = 16;
  bool diced = false;
};

bool IsVolumeFile(const std::string& path) { return std::filesystem::path(path).extension() == ".vdb"; }

void CheckOutput(const std::string& path) {
  if (!IsVolumeFile(path) && !IsObjectFile(path))
    throw Failure{kBadUsage, path + ": volumes are vdb; objects are ovo, obj, fbx, lwo or ply"};
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty()) folder = ".";
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error))
    throw Failure{kOutputFailed, path + ": can't be written: there is no folder " + folder.string()};
}

/// The node itself where it has voxels, or the shader that another stands for.
trBase& VolumeOf(trBase& node) {
  if (ovhost::HasVoxelServer(node)) return node;
  throw Failure{kFailed, node.NameAndPath() + ": is no volume with voxels"};
}

void Print(const Options& options, const trBase& node, const ovhost::VdbExport& made) {
  if (options.object.json) {
    const Json json = {{"node", node.NameAndPath()},
                       {"file", options.object.output},
                       {"grid", options.grid},
                       {"size_in_cells", {made.size[0], made.size[1], made.size[2]}},
                       {"metres_per_cell", {made.edge[0], made.edge[1], made.edge[2]}},
                       {"cells", made.cells},
                       {"active_cells", made.activeCells},
                       {"bytes", made.bytes},
                       {"bake_seconds", made.bakeSeconds},
                       {"write_seconds", made.writeSeconds}};
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    return;
  }
  char text[512];
  std::snprintf(text, sizeof text,
                ": written; %d x %d x %d cells of %.4g x %.4g x %.4g m, %lld of %lld with something in them, "
                "%.1f MB; baked in %.1f s, written and checked in %.1f s",
                made.size[0], made.size[1], made.size[2], made.edge[0], made.edge[1], made.edge[2],
                static_cast<long long>(made.activeCells), static_cast<long long>(made.cells),
                static_cast<double>(made.bytes) / 1e6, made.bakeSeconds, made.writeSeconds);
  trPrintMessage(options.object.output + text);
}

int ExportVolume(Program& program, Session& session, trBase& named, const Options& options) {
  trBase& node = VolumeOf(named);
  auto* shader = dynamic_cast<trShader*>(&node);
  if (!shader) throw Failure{kFailed, node.NameAndPath() + ": is no shader"};

  const ovhost::ErrorWatch errors;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  Progress progress(program.common, &control.stop);
  ovhost::VdbExport made;
  {
    // Shaders are started while this lives.
    const ovhost::Evaluator started(session.Project(), *shader, 0);
    ovhost::VdbExportOptions wanted;
    wanted.grid = options.grid;
    wanted.isHalf = options.bits == 16;
    wanted.stop = &control.stop;
    wanted.progress = [&](const std::string& text, double fraction) { progress.Report(text, fraction); };
    const std::string problem = ovhost::ExportVdb(node, options.object.output, wanted, made);
    progress.Pause();
    if (control.stop) throw Failure{128 + StopSignal(), problem};
    if (!problem.empty()) throw Failure{kOutputFailed, problem};
  }
  Print(options, node, made);
  return CodeOf(errors);
}

int Run(Program& program, const Options& options) {
  const std::unique_ptr<Session> session = OpenSession(options.project);
  const std::string& output = options.object.output;
  CheckOutput(output);
  if (options.diced == !options.node.empty())
    throw Failure{kBadUsage, options.diced ? "--diced writes all that the camera sees, and no single node"
                                           : "which node? or --diced, for all that the camera sees"};
  if (options.diced) {
    if (IsVolumeFile(output)) throw Failure{kBadUsage, output + ": is no file for a surface"};
    return ExportDiced(program, *session, options.object);
  }
  trBase& node = session->Find(options.node);
  return IsVolumeFile(output) ? ExportVolume(program, *session, node, options)
                              : ExportObject(node, options.object);
}

}  // namespace

void AddExport(Program& program) {
  auto options = std::make_shared<Options>();
  ObjectExport& object = options->object;
  CLI::App* command = program.Add(
      "export", "Write a cloud, an object, a population or the diced surface of a frame for other programs",
      "ov export scenes/cumulus.ovd \"Easy cloud 01\" -o cumulus.vdb\n"
      "  ov export scene.ovd \"Rock 01\" -o rock.fbx\n"
      "  ov export scenes/first_light.ovd --diced --width 320 --height 180 -o terrain.ply",
      options, Run);
  AddProjectOptions(*command, options->project);
  command->add_option("node", options->node, "Name or path: a cloud with voxels, or an object");
  command
      ->add_option(
          "-o,--output", object.output,
          "VDB file of a cloud: a fog volume, in metres; or .ovo, .obj, .fbx, .lwo or .ply of an object")
      ->required();
  command->add_option("--grid", options->grid, "Name of the grid in a VDB file")->capture_default_str();
  command->add_option("--bits", options->bits, "Bits a cell of a VDB file: 16 (half floats) or 32")
      ->check(CLI::IsMember({16, 32}))
      ->capture_default_str();
  command->add_flag("--ascii", object.ascii, "Write FBX as text");
  command
      ->add_option("--most-triangles", object.mostTriangles,
                   "Refuse populations of more triangles; what memory holds by default")
      ->check(CLI::PositiveNumber);
  command->add_flag("--diced", options->diced,
                    "Write all displaced surfaces that the camera sees, as finely as it sees them");
  command->add_option("--width", object.width, "Picture that a diced surface is for, pixels")
      ->check(CLI::Range(1, 1 << 20));
  command->add_option("--height", object.height, "Its height")->check(CLI::Range(1, 1 << 20));
  command->add_option("--camera", object.camera, "Camera that sees a diced surface");
  command->add_option("--render-node", object.renderNode, "Render node of a diced surface");
  command->add_flag("--json", object.json, "Print what was written as JSON");
}

}  // namespace ovapp
