// `ov new`: writes a new project with camera, sun, sky light and a planet.
#include <cstdio>
#include <filesystem>

#include "app/app.h"
#include "app/project_options.h"
#include "core/messages.h"
#include "host/project/project_file.h"

namespace ovapp {
namespace {

struct Options {
  ProjectOptions changes;
  std::string path;
  std::vector<std::string> with;
  bool overwrite = false;
};

int Run(Program&, const Options& options) {
  if (ovhost::LoadModules() > 0) return kFailed;
  std::error_code error;
  if (options.path != "-" && !options.overwrite && std::filesystem::exists(options.path, error))
    throw Failure{kOutputFailed, options.path + ": exists already; --overwrite replaces it"};
  std::unique_ptr<juProject> project = ovhost::NewDefaultProject();
  if (!project) return kFailed;
  for (const std::string& what : options.with)
    if (!ovhost::AddToProject(*project, what)) return kFailed;
  Session session(std::move(project));
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
  CLI::App* command = program.Add("new", "Write a new project: camera, sun, sky light, planet, terrain",
                                  "ov new scene.ovd --seed 7", options, Run);
  command->add_option("project", options->path, "File to write; - is standard output")->required();
  command
      ->add_option("--with", options->with,
                   "Add to it, set up to be seen: populator, ten thousand objects on the ground")
      ->check(CLI::IsMember({"populator"}));
  command->add_flag("--overwrite", options->overwrite, "Replace a file that exists");
  AddChangeOptions(*command, options->changes);
}

}  // namespace ovapp
