// Opens a project for a subcommand.
#include "app/session.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "core/messages.h"
#include "host/base/log.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"

namespace ovapp {
namespace {

using Json = nlohmann::json;

/// A JSON value in the project file's spelling: lists become numbers with blanks between.
std::string Spelled(const Json& value, const std::string& what) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number()) return value.dump();
  if (value.is_array()) {
    std::string text;
    for (const Json& element : value) text += (text.empty() ? "" : " ") + Spelled(element, what);
    return text;
  }
  throw Failure{kBadUsage, what + ": a value is a text, a number, true, false or a list of numbers"};
}

/// Splits "node.param=value". Node names may hold dots, parameter names don't.
void Split(const std::string& assignment, std::string& target, std::string& value) {
  const size_t equals = assignment.find('=');
  if (equals == std::string::npos)
    throw Failure{kBadUsage, "--set: \"" + assignment + "\" is not of the form node.param=value"};
  target = assignment.substr(0, equals);
  value = assignment.substr(equals + 1);
}

}  // namespace

int LoadModules() {
  ovhost::RegisterHostClasses();
  return ovhost::LoadPlugins() > 0 ? kFailed : kDone;
}

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

Session::Session(const ProjectOptions& options) {
  if (LoadModules() != kDone) throw Failure{kFailed, ""};
  project_ = ovhost::LoadProject(options.path);
  if (!project_) throw Failure{kInvalidProject, ""};
  ApplyChanges(options);
}

Session::Session(std::unique_ptr<juProject> project, const ProjectOptions& options)
    : project_(std::move(project)) {
  ApplyChanges(options);
}

void Session::ApplyChanges(const ProjectOptions& options) const {
  if (!options.variables.empty()) ApplyVariables(options.variables);
  for (const std::string& assignment : options.assignments) {
    std::string target, value;
    Split(assignment, target, value);
    Assign(target, value);
  }
}

trBase& Session::Find(const std::string& path) const {
  if (trBase* node = project_->NodeByPath(path)) return *node;
  // A bare name may stand anywhere in the tree, as long as it stands there once.
  trBase* found = nullptr;
  for (trBase* node : ovhost::AllNodes(project_.get())) {
    if (node->Name() != path) continue;
    if (found)
      throw Failure{kFailed, "the project has several nodes \"" + path + "\": " + found->NameAndPath() +
                                 ", " + node->NameAndPath()};
    found = node;
  }
  if (!found) throw Failure{kFailed, "the project has no node \"" + path + "\""};
  return *found;
}

void Session::Assign(const std::string& target, const std::string& value) const {
  const size_t dot = target.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == target.size())
    throw Failure{kBadUsage, "\"" + target + "\" is not of the form node.param"};
  trBase& node = Find(target.substr(0, dot));
  const std::string name = target.substr(dot + 1);
  const trString nameText = name;
  const trScopedErrorsWarningsContext context(&node, &nameText);
  const long errorsBefore = ovhost::NumErrors();
  if (node.SetParamFromString(name.c_str(), value, trWhoUserIndirect)) return;
  // The node may have told why.
  long index = 0;
  std::string text;
  if (ovhost::NumErrors() == errorsBefore)
    text = node.NameAndPath() + (node.FindParam(index, name.c_str())
                                     ? ": " + name + ": \"" + value + "\" is no value of it"
                                     : ": there is no parameter \"" + name + "\"");
  throw Failure{kFailed, text};
}

void Session::ApplyVariables(const std::string& file) const {
  std::ifstream in(file);
  if (!in) throw Failure{kInvalidProject, file + ": can't be read"};
  const Json json = Json::parse(in, nullptr, false);
  if (!json.is_object()) throw Failure{kInvalidProject, file + ": not a JSON object of node.param and value"};
  for (const auto& [target, value] : json.items()) {
    if (!value.is_object()) {
      Assign(target, Spelled(value, file));
      continue;
    }
    for (const auto& [param, inner] : value.items()) Assign(target + "." + param, Spelled(inner, file));
  }
}

std::uint64_t Session::Hash() const {
  // FNV-1a (Fowler, Noll and Vo 1991) of the text that the project would be saved as.
  std::uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : ovhost::ProjectToText(*project_))
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
  return hash;
}

std::vector<trBase*> NodesWithFact(juProject& project, const char* fact) {
  std::vector<trBase*> nodes = ovhost::AllNodes(&project);
  std::erase_if(nodes, [fact](const trBase* node) { return !node->IsTrue(fact); });
  return nodes;
}

}  // namespace ovapp
