// `ov check`: finds what is wrong with a project before it is rendered.
#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "app/session.h"
#include "core/messages.h"
#include "core/shader.h"
#include "host/base/log.h"
#include "host/node/node_data.h"

namespace ovapp {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
  ProjectOptions project;
  bool json = false;
};

bool IsLink(trParamType type) { return type >= trParamType::kNodeLink; }

const trFile& LinkOf(const trBase& node, long index) {
  return *static_cast<const trFile*>(node.ParamPtr(index));
}

/// Every link that has a text leads to a node of its kind.
void CheckLinks(const std::vector<trBase*>& nodes) {
  for (const trBase* node : nodes)
    for (long i = 0; i < node->NumParams(); ++i) {
      if (!IsLink(node->ParamType(i))) continue;
      const trFile& link = LinkOf(*node, i);
      if (link.FileStringR().empty() || link.LinkedNode(true)) continue;
      const trString name = node->ParamName(i);
      const trScopedErrorsWarningsContext context(node, &name);
      if (const trBase* other = link.LinkedNode(false))
        trError("the link to " + other->NameAndPath() + " is of the wrong kind: " + link.RequiredFact() +
                " isn't true of it");
      else
        trError("the link \"" + link.FileStringR() + "\" leads to no node");
    }
}

/// The shaders that a shader calls.
std::vector<const trBase*> Called(const trBase* node) {
  std::vector<const trBase*> called;
  for (long i = 0; i < node->NumParams(); ++i)
    if (node->ParamType(i) == trParamType::kShaderLink)
      if (const trBase* other = LinkOf(*node, i).LinkedNode(true)) called.push_back(other);
  return called;
}

/// Depth-first search with a stack of its own: chains may be tens of thousands long.
class CycleSearch {
 public:
  void Start(const trBase* node) {
    if (states_[node] == State::kNew) Enter(node);
    while (!path_.empty()) {
      Step& step = path_.back();
      if (step.next == step.called.size()) {
        states_[step.node] = State::kDone;
        path_.pop_back();
        continue;
      }
      const trBase* const next = step.called[step.next++];
      const State state = states_[next];
      if (state == State::kOnPath) Report(next);
      if (state == State::kNew) Enter(next);
    }
  }

 private:
  enum class State { kNew, kOnPath, kDone };
  struct Step {
    const trBase* node;
    std::vector<const trBase*> called;
    size_t next = 0;
  };

  void Enter(const trBase* node) {
    states_[node] = State::kOnPath;
    path_.push_back({node, Called(node)});
  }

  void Report(const trBase* first) const {
    constexpr size_t kNamed = 12;
    auto step = std::find_if(path_.begin(), path_.end(), [first](const Step& s) { return s.node == first; });
    std::string text = "the shader feeds itself: ";
    for (size_t named = 0; step != path_.end(); ++step, ++named) {
      if (named < kNamed) text += step->node->NameAndPath() + " <- ";
      if (named == kNamed) text += "... <- ";
    }
    const trScopedErrorsWarningsContext context(first);
    trError(text + first->NameAndPath());
  }

  std::map<const trBase*, State> states_;
  std::vector<Step> path_;
};

void CheckCompleteness(juProject& project) {
  const trScopedErrorsWarningsContext context(&project);
  if (NodesWithFact(project, "is_camera").empty()) trWarning("the project has no camera");
  if (NodesWithFact(project, "is_light").empty()) trWarning("the project has no light");
  if (NodesWithFact(project, "is_object").empty()) trWarning("the project has no object");
  if (NodesWithFact(project, "is_render").empty()) trWarning("the project has no render node");
}

void Collect(void* list, const ovhost::LogRecord& record) {
  static constexpr const char* kLevels[] = {"debug", "message", "warning", "error"};
  if (record.level < ovhost::LogLevel::kWarning) return;
  static_cast<Json*>(list)->push_back({{"level", kLevels[static_cast<int>(record.level)]},
                                       {"node", record.node},
                                       {"parameter", record.parameter},
                                       {"text", record.text}});
}

/// Returns the number of nodes, or -1 where the project can't be read. What the reader warned of (unknown
/// classes and attributes) counts as a fault.
long Check(const Options& options, long& faults) {
  try {
    Session session(options.project);
    faults = ovhost::NumWarnings();
    const std::vector<trBase*> nodes = ovhost::AllNodes(&session.Project());
    CheckLinks(nodes);
    CycleSearch search;
    for (const trBase* node : nodes)
      if (dynamic_cast<const trShader*>(node)) search.Start(node);
    CheckCompleteness(session.Project());
    faults += ovhost::NumErrors();
    return static_cast<long>(nodes.size());
  } catch (const Failure& failure) {
    if (!failure.text.empty()) trError(failure.text);
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
    std::puts(report.dump(1, ' ', false, Json::error_handler_t::replace).c_str());
  } else if (nodes >= 0) {
    std::printf("%s: %ld nodes, %ld errors, %ld warnings\n", options.project.path.c_str(), nodes,
                ovhost::NumErrors(), ovhost::NumWarnings());
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
