// Broken links, and shaders that feed themselves.
#include "host/node/graph_check.h"

#include <algorithm>
#include <map>
#include <vector>

#include "core/messages.h"
#include "core/shader.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

bool IsLink(trParamType type) { return type >= trParamType::kNodeLink; }

const trFile& LinkOf(const trBase& node, long index) {
  return *static_cast<const trFile*>(node.ParamPtr(index));
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
class RingSearch {
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
  long NumFound() const { return found_; }

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

  void Report(const trBase* first) {
    constexpr size_t kNamed = 12;
    auto step = std::find_if(path_.begin(), path_.end(), [first](const Step& s) { return s.node == first; });
    std::string text = "the shader feeds itself: ";
    for (size_t named = 0; step != path_.end(); ++step, ++named) {
      if (named < kNamed) text += step->node->NameAndPath() + " <- ";
      if (named == kNamed) text += "... <- ";
    }
    const trScopedErrorsWarningsContext context(first);
    trError(text + first->NameAndPath());
    ++found_;
  }

  std::map<const trBase*, State> states_;
  std::vector<Step> path_;
  long found_ = 0;
};

}  // namespace

long ReportBrokenLinks(trBase* root, void (*report)(const trString&)) {
  long broken = 0;
  for (const trBase* node : AllNodes(root))
    for (long i = 0; i < node->NumParams(); ++i) {
      if (!IsLink(node->ParamType(i))) continue;
      const trFile& link = LinkOf(*node, i);
      if (link.FileStringR().empty() || link.LinkedNode(true)) continue;
      ++broken;
      const trString name = node->ParamName(i);
      const trScopedErrorsWarningsContext context(node, &name);
      if (const trBase* other = link.LinkedNode(false))
        report("the link to " + other->NameAndPath() + " is of the wrong kind: " + link.RequiredFact() +
               " isn't true of it");
      else
        report("the link \"" + link.FileStringR() + "\" leads to no node");
    }
  return broken;
}

long ReportShaderRings(trBase* root) {
  RingSearch search;
  for (const trBase* node : AllNodes(root))
    if (dynamic_cast<const trShader*>(node)) search.Start(node);
  return search.NumFound();
}

}  // namespace ovhost
