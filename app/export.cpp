// `ov export`: bakes a volume and writes it for other programs.
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/app.h"
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
  std::string node, output, grid = "density";
  int bits = 16;
  bool json = false;
};

void CheckOutput(const std::string& path) {
  if (std::filesystem::path(path).extension() != ".vdb") throw Failure{kBadUsage, path + ": volumes are vdb"};
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
  if (options.json) {
    const Json json = {{"node", node.NameAndPath()},
                       {"file", options.output},
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
  trPrintMessage(options.output + text);
}

int Run(Program& program, const Options& options) {
  const std::unique_ptr<Session> session = OpenSession(options.project);
  CheckOutput(options.output);
  trBase& node = VolumeOf(session->Find(options.node));
  auto* shader = dynamic_cast<trShader*>(&node);
  if (!shader) throw Failure{kFailed, node.NameAndPath() + ": is no shader"};

  const ovhost::ErrorWatch errors;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  Progress progress(program.common, &control.stop);
  ovhost::VdbExport made;
  {
    // Shaders are started while this lives.
    const ovhost::Evaluator started(session->Project(), *shader, 0);
    ovhost::VdbExportOptions wanted;
    wanted.grid = options.grid;
    wanted.isHalf = options.bits == 16;
    wanted.stop = &control.stop;
    wanted.progress = [&](const std::string& text, double fraction) { progress.Report(text, fraction); };
    const std::string problem = ovhost::ExportVdb(node, options.output, wanted, made);
    progress.Pause();
    if (control.stop) throw Failure{128 + StopSignal(), problem};
    if (!problem.empty()) throw Failure{kOutputFailed, problem};
  }
  Print(options, node, made);
  return CodeOf(errors);
}

}  // namespace

void AddExport(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("export", "Bake a cloud and write it as a VDB file",
                  "ov export scenes/cumulus.ovd \"Easy cloud 01\" -o cumulus.vdb", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_option("node", options->node, "Name or path of a node with voxels: a cloud")->required();
  command->add_option("-o,--output", options->output, "VDB file: a fog volume, in metres")->required();
  command->add_option("--grid", options->grid, "Name of the grid in the file")->capture_default_str();
  command->add_option("--bits", options->bits, "Bits a cell: 16 (half floats) or 32")
      ->check(CLI::IsMember({16, 32}))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print what was written as JSON");
}

}  // namespace ovapp
