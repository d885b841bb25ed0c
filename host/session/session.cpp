// Opening a project, finding its nodes, changing its parameters.
#include "host/session/session.h"

#include <algorithm>
#include <mutex>

#include "core/messages.h"
#include "host/base/nearest_word.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/session/input_stamps.h"

namespace ovhost {
namespace {

/// Splits at `place`; false where either half would be empty.
bool Halve(const std::string& text, size_t place, std::string& left, std::string& right) {
  if (place == std::string::npos || place == 0 || place + 1 == text.size()) return false;
  left = text.substr(0, place);
  right = text.substr(place + 1);
  return true;
}

std::vector<std::string> NamesOfNodes(juProject& project) {
  std::vector<std::string> names;
  for (const trBase* node : AllNodes(&project)) names.push_back(node->Name());
  return names;
}

std::vector<std::string> NamesOfParams(const trBase& node) {
  std::vector<std::string> names;
  for (const trParamInfo& param : node.Data().params) names.push_back(param.name);
  return names;
}

/// Some parameters take no value outside their range from a user. Throws a SessionError that tells the range.
void CheckLimits(const trBase& node, long index, const std::string& text) {
  const trParamInfo& param = node.Data().params[static_cast<size_t>(index)];
  trParamValue value(0L);
  if (!param.hint || !param.hint->Has("do_range") || param.hint->Value("do_range") == 0 ||
      !TextToValue(text, param, value))
    return;
  double number;
  if (const long* whole = std::get_if<long>(&value.value))
    number = static_cast<double>(*whole);
  else if (const double* real = std::get_if<double>(&value.value))
    number = *real;
  else
    return;
  const double low = param.hint->Value("min_value"), high = param.hint->Value("max_value");
  if (number >= low && number <= high) return;
  throw SessionError(SessionError::kFailed, node.NameAndPath() + ": " + param.name + ": " + text +
                                                " is not between " + ValueToText(trParamValue(low)) +
                                                " and " + ValueToText(trParamValue(high)));
}

}  // namespace

int LoadModules() {
  static std::once_flag once;
  static int refused = 0;
  std::call_once(once, [] {
    RegisterHostClasses();
    refused = LoadPlugins();
  });
  return refused;
}

Session::Session(const std::string& path) {
  if (LoadModules() > 0) throw SessionError(SessionError::kFailed, "");
  project_ = LoadProject(path);
  if (!project_)
    throw SessionError(StopScope::IsAsked() ? SessionError::kFailed : SessionError::kInvalidProject, "");
}

Session::Session(std::unique_ptr<juProject> project) : project_(std::move(project)) {}

Session::~Session() {
  const SessionScope scope(context_);
  project_.reset();
}

trBase& Session::Find(const std::string& path) const {
  if (path == "/") return *project_;
  if (trBase* node = project_->NodeByPath(path)) return *node;
  // A bare name may stand anywhere in the tree, as long as it stands there once.
  trBase* found = nullptr;
  for (trBase* node : AllNodes(project_.get())) {
    if (node->Name() != path) continue;
    if (found)
      throw SessionError(SessionError::kFailed, "the project has several nodes \"" + path + "\": " +
                                                    found->NameAndPath() + ", " + node->NameAndPath());
    found = node;
  }
  if (!found)
    throw SessionError(SessionError::kFailed, "the project has no node \"" + path + "\"" +
                                                  DidYouMean(path, NamesOfNodes(*project_)));
  return *found;
}

void Session::Assign(const std::string& target, const std::string& value) const {
  // Names of nodes may hold dots, those of parameters don't.
  std::string path, name;
  if (!Halve(target, target.rfind('.'), path, name))
    throw SessionError(SessionError::kBadRequest, "\"" + target + "\" is not of the form node.param");
  trBase& node = Find(path);
  const SessionScope scope(context_);
  const trString nameText = name;
  const trScopedErrorsWarningsContext context(&node, &nameText);
  const ToldErrors told;
  const long index = FindParamByAnyName(node, name);
  if (index >= 0) CheckLimits(node, index, value);
  if (node.SetParamFromString(name.c_str(), value, trWhoUserIndirect)) {
    // What is said now holds on every frame.
    if (index >= 0) node.Data().params[static_cast<size_t>(index)].curves.clear();
    return;
  }
  std::string text;
  if (!told.Any())
    text = node.NameAndPath() +
           (index >= 0 ? ": " + name + ": \"" + value + "\" is no value of it"
                       : ": there is no parameter \"" + name + "\"" + DidYouMean(name, NamesOfParams(node)));
  throw SessionError(SessionError::kFailed, text);
}

void Session::Assign(const std::string& assignment) const {
  const size_t equals = assignment.find('=');
  if (equals == std::string::npos)
    throw SessionError(SessionError::kBadRequest,
                       "\"" + assignment + "\" is not of the form node.param=value");
  Assign(assignment.substr(0, equals), assignment.substr(equals + 1));
}

std::uint64_t Session::Hash() const {
  // FNV-1a (Fowler, Noll and Vo 1991) of the text that the project would be saved as.
  std::uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : ProjectToText(*project_))
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
  return hash;
}

std::uint64_t Session::SceneKey() const {
  // Half a turn apart: equal halves don't cancel out.
  const std::uint64_t stamps = InputStamps(*project_);
  return Hash() ^ (stamps << 32 | stamps >> 32);
}

std::vector<trBase*> Session::NodesWithFact(const char* fact) const {
  std::vector<trBase*> nodes = AllNodes(project_.get());
  std::erase_if(nodes, [fact](const trBase* node) { return !node->IsTrue(fact); });
  return nodes;
}

std::vector<std::string> Session::MissingClasses() const {
  std::vector<std::string> classes;
  for (const trBase* node : AllNodes(project_.get()))
    for (const trUnknownBlock& block : node->Data().unknownBlocks)
      if (!block.className.empty()) classes.push_back(block.className);
  std::sort(classes.begin(), classes.end());
  classes.erase(std::unique(classes.begin(), classes.end()), classes.end());
  return classes;
}

}  // namespace ovhost
