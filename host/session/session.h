// A project opened to be worked with: what the command line, scripts and an editor have in common.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/project.h"
#include "host/base/log.h"
#include "host/base/session_context.h"
#include "host/session/session_error.h"

namespace ovhost {

/// Registers the host's classes and loads the modules, once in a process. How many modules were refused;
/// messages tell why. Thread-safe.
OV_API int LoadModules();

/// Works for the SessionContext that is current where it is made, which must outlive it: to have several
/// sessions in a process, give each a context of its own and do what concerns its nodes within a
/// SessionScope. What a session does itself it does there. One thread at a time.
class OV_API Session {
 public:
  /// Loads the modules and the project. Throws a SessionError where a module is refused or the file is no
  /// project.
  explicit Session(const std::string& path);
  /// The same for a project made here, with the modules loaded.
  explicit Session(std::unique_ptr<juProject> project);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  juProject& Project() { return *project_; }
  SessionContext& Context() const { return context_; }
  /// The project as its file's bytes, hashed.
  std::uint64_t Hash() const;
  /// The same with the contents of the files that it names, and the program: equal ones render equal pictures
  /// now.
  std::uint64_t SceneKey() const;
  /// The node of a path, or of a name that stands in the project once. Throws a SessionError where there is
  /// none.
  trBase& Find(const std::string& path) const;
  /// Every node with the fact, parents first.
  std::vector<trBase*> NodesWithFact(const char* fact) const;
  /// Registered names of the classes that the project's file names and no module has, each once.
  std::vector<std::string> MissingClasses() const;

  /// Sets the parameter that "node.param" names from text in the project file's spelling. Throws a
  /// SessionError where it can't.
  void Assign(const std::string& target, const std::string& value) const;
  /// The same for "node.param=value".
  void Assign(const std::string& assignment) const;
  /// The same for each member of a JSON object: {"node.param": value} or {"node": {"param": value}}. `source`
  /// is what errors call the text.
  void AssignJson(const std::string& text, const std::string& source) const;
  void AssignJsonFile(const std::string& path) const;

 private:
  SessionContext& context_ = SessionContext::Current();
  std::unique_ptr<juProject> project_;
};

/// Counts what goes wrong while it lives. Thread-safe.
class ErrorWatch {
 public:
  ErrorWatch() : errors_(NumErrors()), fileErrors_(NumFileErrors()) {}
  bool HasErrors() const { return NumErrors() > errors_; }
  /// Whether one of them was about a file that can't be read.
  bool HasFileErrors() const { return NumFileErrors() > fileErrors_; }

 private:
  long errors_, fileErrors_;
};

}  // namespace ovhost
