// The options of subcommands that open a project, and what comes of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/app.h"
#include "host/session/session.h"

namespace ovapp {

using ovhost::Session;

/// The project file and what the command line changes in it.
struct ProjectOptions {
  std::string path;
  std::vector<std::string> assignments;  ///< "node.param=value"
  std::string variables;                 ///< a JSON file of the same
};
/// Declares the project file as positional argument, --set and --vars.
void AddProjectOptions(CLI::App& command, ProjectOptions& options);
/// Declares --set and --vars alone.
void AddChangeOptions(CLI::App& command, ProjectOptions& options);

/// Does what --set and --vars say. Throws a SessionError where an assignment names nothing.
void ApplyChanges(const Session& session, const ProjectOptions& options);

/// The project of the options, changed as they say.
std::unique_ptr<Session> OpenSession(const ProjectOptions& options);

/// The exit code of what came of a job with errors: what was made in spite of one isn't what was asked for.
int CodeOf(const ovhost::ErrorWatch& errors);

}  // namespace ovapp
