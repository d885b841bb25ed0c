// `ov check`: finds what is wrong with a project before it is rendered.
#include <algorithm>
#include <cstdio>

#include "app/app.h"
#include "app/json.h"
#include "app/project_options.h"
#include "app/units.h"
#include "core/messages.h"
#include "host/base/log.h"
#include "host/base/log_text.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"
#include "host/raster/heightfield_load.h"
#include "host/raster/heightfield_walk.h"

namespace ovapp {
namespace {

struct Options {
  ProjectOptions project;
  std::vector<std::string> paths;
  bool json = false;
};

void CheckCompleteness(Session& session) {
  const trScopedErrorsWarningsContext context(&session.Project());
  if (session.NodesWithFact("is_camera").empty()) trWarning("the project has no camera");
  if (session.NodesWithFact("is_light").empty()) trWarning("the project has no light");
  if (session.NodesWithFact("is_object").empty()) trWarning("the project has no object");
  if (session.NodesWithFact("is_render").empty()) trWarning("the project has no render node");
}

void Collect(void* list, const ovhost::LogRecord& record) {
  static constexpr const char* kLevels[] = {"debug", "message", "warning", "error"};
  if (record.level < ovhost::LogLevel::kWarning) return;
  static_cast<Json*>(list)->push_back({{"level", kLevels[static_cast<int>(record.level)]},
                                       {"node", record.node},
                                       {"parameter", record.parameter},
                                       {"text", record.text}});
}

/// The project's nodes below and including `node`, without those that nodes keep to themselves.
long CountNodes(const trBase& node) {
  long count = 1;
  for (long i = 0; i < node.NumChildren(); ++i) count += CountNodes(*node.Child(i));
  return count;
}

/// What was found in one file.
struct Findings {
  long nodes = 0, errors = 0, warnings = 0;
  bool isFaulty = false;
};

/// What the reader warned of (unknown classes and attributes) counts as a fault; what is missing to make a
/// picture doesn't.
Findings Check(const ProjectOptions& project) {
  Findings found;
  const long errors = ovhost::NumErrors(), warnings = ovhost::NumWarnings();
  try {
    const std::unique_ptr<Session> opened = OpenSession(project);
    Session& session = *opened;
    found.isFaulty = ovhost::NumWarnings() > warnings;
    ovhost::ReportBrokenLinks(&session.Project(), trError);
    ovhost::ReportShaderRings(&session.Project(), trError);
    ovhost::ReportHeightfieldRings(&session.Project());
    ovhost::ReportElevationFiles(&session.Project());
    CheckCompleteness(session);
    found.nodes = CountNodes(session.Project());
  } catch (const ovhost::SessionError& error) {
    if (*error.what()) trError(error.what());
    found.isFaulty = true;
  }
  found.errors = ovhost::NumErrors() - errors;
  found.warnings = ovhost::NumWarnings() - warnings;
  found.isFaulty |= found.errors > 0;
  return found;
}

int Run(Program&, const Options& options) {
  Json reports = Json::array();
  bool isAnyFaulty = false;
  for (const std::string& path : options.paths) {
    ProjectOptions project = options.project;
    project.path = path;
    Json messages = Json::array();
    if (options.json) ovhost::SetLogSink(Collect, &messages);
    const Findings found = Check(project);
    ovhost::SetLogSink(nullptr, nullptr);
    isAnyFaulty |= found.isFaulty;
    reports.push_back(
        {{"project", path}, {"nodes", found.nodes}, {"faulty", found.isFaulty}, {"messages", messages}});
    if (!options.json)
      std::printf("%s: %s, %s, %s: %s\n", ovhost::PrintableText(path).c_str(),
                  Counted(found.nodes, "node").c_str(), Counted(found.errors, "error").c_str(),
                  Counted(found.warnings, "warning").c_str(), found.isFaulty ? "faulty" : "sound");
  }
  if (options.json) std::fputs(JsonText(options.paths.size() == 1 ? reports[0] : reports).c_str(), stdout);
  return isAnyFaulty ? kInvalidProject : kDone;
}

}  // namespace

void AddCheck(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("check", "Check a project: links, classes, graphs that feed themselves, what is missing",
                  "ov check scene.ovd", options, Run);
  command->add_option("projects", options->paths, "Project files (.ovd)")->required();
  AddChangeOptions(*command, options->project);
  command->add_flag("--json", options->json, "Print JSON");
}

}  // namespace ovapp
