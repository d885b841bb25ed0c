// `ov check`: finds what is wrong with a project before it is rendered.
#include <algorithm>
#include <cstdio>

#include "app/app.h"
#include "app/json.h"
#include "app/project_options.h"
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

/// Returns the number of nodes, or -1 where the project can't be read. What the reader warned of (unknown
/// classes and attributes) counts as a fault.
long Check(const Options& options, long& faults) {
  try {
    const std::unique_ptr<Session> opened = OpenSession(options.project);
    Session& session = *opened;
    faults = ovhost::NumWarnings();
    ovhost::ReportBrokenLinks(&session.Project(), trError);
    ovhost::ReportShaderRings(&session.Project(), trError);
    ovhost::ReportHeightfieldRings(&session.Project());
    ovhost::ReportElevationFiles(&session.Project());
    CheckCompleteness(session);
    faults += ovhost::NumErrors();
    return CountNodes(session.Project());
  } catch (const ovhost::SessionError& error) {
    if (*error.what()) trError(error.what());
    faults = 1;
    return -1;
  }
}

int Run(Program&, const Options& options) {
  Json messages = Json::array();
  if (options.json) ovhost::SetLogSink(Collect, &messages);
  long faults = 0;
  const long nodes = Check(options, faults);
  ovhost::SetLogSink(nullptr, nullptr);
  if (options.json) {
    const Json report = {
        {"project", options.project.path}, {"nodes", std::max(nodes, 0L)}, {"messages", messages}};
    std::fputs(JsonText(report).c_str(), stdout);
  } else if (nodes >= 0) {
    std::printf("%s: %ld nodes, %ld errors, %ld warnings\n",
                ovhost::PrintableText(options.project.path).c_str(), nodes, ovhost::NumErrors(),
                ovhost::NumWarnings());
  }
  return faults > 0 ? kInvalidProject : kDone;
}

}  // namespace

void AddCheck(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("check", "Check a project: links, classes, graphs that feed themselves, what is missing",
                  "ov check scene.ovd", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_flag("--json", options->json, "Print JSON");
}

}  // namespace ovapp
