// `ov new`: writes a new project, a landscape to go on from.
#include <cstdio>
#include <filesystem>
#include <random>

#include "app/app.h"
#include "app/project_options.h"
#include "core/messages.h"
#include "core/random.h"
#include "host/project/project_file.h"
#include "host/session/landscape.h"

namespace ovapp {
namespace {

struct Options {
  ProjectOptions changes;
  std::string path, elevation;
  std::string like = ovhost::LandscapeKinds().front().name;
  std::vector<std::string> with;
  bool overwrite = false, list = false;
};

void PrintKinds() {
  for (const ovhost::LandscapeKind& kind : ovhost::LandscapeKinds())
    std::printf("%-10s %s\n", kind.name.c_str(), kind.about.c_str());
}

int Run(Program& program, const Options& options) {
  if (options.list) return PrintKinds(), kDone;
  if (options.path.empty()) throw Failure{kBadUsage, "new: name the project to write"};
  if (ovhost::LoadModules() > 0) return kFailed;
  std::error_code error;
  if (options.path != "-" && !options.overwrite && std::filesystem::exists(options.path, error))
    throw Failure{kOutputFailed, options.path + ": exists already; --overwrite replaces it"};
  // Of the device rather than of the clock, which two runs within a second share.
  if (!program.common.seed) trFixGlobalSeed(std::random_device{}());
  const std::unique_ptr<Session> made = ovhost::NewLandscape(options.like, options.elevation);
  Session& session = *made;
  for (const std::string& what : options.with)
    if (!ovhost::AddToProject(session.Project(), what)) return kFailed;
  ApplyChanges(session, options.changes);
  if (options.path == "-") {
    const std::string text = ovhost::ProjectToText(session.Project());
    std::fwrite(text.data(), 1, text.size(), stdout);
    return kDone;
  }
  const std::string problem = ovhost::SaveProject(session.Project(), options.path);
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
  trPrintMessage(options.path + ": written");
  return kDone;
}

}  // namespace

void AddNew(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("new", "Write a new project: a landscape of its own with a place to look at it from",
                  "ov new scene.ovd --like lake --seed 7", options, Run);
  command->add_option("project", options->path, "File to write; - is standard output");
  command->add_option("elevation", options->elevation,
                      "Elevation file that the land is made of, with --like elevation");
  command->add_option("--like", options->like, "What kind of landscape; --list tells them")
      ->capture_default_str();
  command->add_flag("--list", options->list, "List the kinds of landscapes");
  command
      ->add_option("--with", options->with,
                   "Add to it, set up to be seen: populator, ten thousand objects on the ground")
      ->check(CLI::IsMember({"populator"}));
  command->add_flag("--overwrite", options->overwrite, "Replace a file that exists");
  AddChangeOptions(*command, options->changes);
}

}  // namespace ovapp
