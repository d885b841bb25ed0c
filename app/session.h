// A project opened for a subcommand: modules loaded, file read, values of the command line applied.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/app.h"
#include "core/project.h"
#include "host/base/log.h"

namespace ovapp {

/// Registers the host's classes and loads the modules. The exit code: kFailed where a module was refused.
int LoadModules();

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

/// Main thread only.
class Session {
 public:
  /// Throws a Failure where a module was refused, the file is no project or an assignment names nothing.
  explicit Session(const ProjectOptions& options);
  /// The same for a project made here, with the modules loaded.
  Session(std::unique_ptr<juProject> project, const ProjectOptions& options);
  juProject& Project() { return *project_; }
  /// Hash of the project as loaded and changed: equal projects render equal pictures.
  std::uint64_t Hash() const;
  /// The node of a path or name. Throws a Failure where there is none.
  trBase& Find(const std::string& path) const;
  /// Sets a parameter from text, as --set does. Throws a Failure where it can't.
  void Assign(const std::string& target, const std::string& value) const;

 private:
  void ApplyChanges(const ProjectOptions& options) const;
  void ApplyVariables(const std::string& file) const;

  std::unique_ptr<juProject> project_;
};

/// Counts what goes wrong while it lives. Thread-safe.
class ErrorWatch {
 public:
  ErrorWatch() : errors_(ovhost::NumErrors()), fileErrors_(ovhost::NumFileErrors()) {}
  bool HasErrors() const { return ovhost::NumErrors() > errors_; }
  /// The exit code of what came of it all the same: what was made in spite of an error isn't what was asked
  /// for.
  int Code() const {
    return ovhost::NumFileErrors() > fileErrors_ ? kInvalidProject : HasErrors() ? kFailed : kDone;
  }

 private:
  long errors_, fileErrors_;
};

/// Every node with the fact, parents first.
std::vector<trBase*> NodesWithFact(juProject& project, const char* fact);

}  // namespace ovapp
