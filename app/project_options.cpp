// Options of subcommands that open a project.
#include "app/project_options.h"

namespace ovapp {

void AddProjectOptions(CLI::App& command, ProjectOptions& options) {
  command.add_option("project", options.path, "Project file (.ovd)")->required();
  AddChangeOptions(command, options);
}

void AddChangeOptions(CLI::App& command, ProjectOptions& options) {
  command.add_option("--set", options.assignments, "Change a parameter: node.param=value")
      ->expected(1)
      ->take_all();
  command.add_option("--vars", options.variables,
                     "JSON file of such changes: {\"node.param\": value} or {\"node\": {\"param\": value}}");
}

void ApplyChanges(const Session& session, const ProjectOptions& options) {
  if (!options.variables.empty()) session.AssignJsonFile(options.variables);
  for (const std::string& assignment : options.assignments) session.Assign(assignment);
}

std::unique_ptr<Session> OpenSession(const ProjectOptions& options) {
  auto session = std::make_unique<Session>(options.path);
  ApplyChanges(*session, options);
  return session;
}

int CodeOf(const ovhost::ErrorWatch& errors) {
  return errors.HasFileErrors() ? kInvalidProject : errors.HasErrors() ? kFailed : kDone;
}

}  // namespace ovapp
