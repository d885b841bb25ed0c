// Broken links, shaders and heightfields that feed themselves, and networks too deep.
#include "host/node/graph_check.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "core/messages.h"
#include "core/shader.h"
#include "host/node/node_data.h"
#include "host/raster/heightfield_walk.h"

namespace ovhost {
namespace {

bool IsLink(trParamType type) { return type >= trParamType::kNodeLink; }

const trFile& LinkOf(const trBase& node, long index) {
  return *static_cast<const trFile*>(node.ParamPtr(index));
}

/// What may feed itself: its name, which nodes are of it, and what such a node asks.
struct Kind {
  const char* noun;
  bool (*has)(const trBase* node);
  std::vector<const trBase*> (*asked)(const trBase* node);
};

std::vector<const trBase*> CalledShaders(const trBase* node) {
  std::vector<const trBase*> called;
  for (long i = 0; i < node->NumParams(); ++i)
    if (node->ParamType(i) == trParamType::kShaderLink)
      if (const trBase* other = LinkOf(*node, i).LinkedNode(true)) called.push_back(other);
  return called;
}

const Kind kShaders = {"shader",
                       [](const trBase* node) { return dynamic_cast<const trShader*>(node) != nullptr; },
                       CalledShaders};
const Kind kHeightfields = {
    "heightfield", [](const trBase* node) { return dynamic_cast<const trHeightfield*>(node) != nullptr; },
    [](const trBase* node) {
      const std::vector<trHeightfield*> linked = LinkedHeightfields(*node);
      return std::vector<const trBase*>(linked.begin(), linked.end());
    }};

/// Depth-first search with a stack of its own: chains may be tens of thousands long.
class RingSearch {
 public:
  RingSearch(trBase* root, const Kind& kind, bool isQuiet) : kind_(kind), isQuiet_(isQuiet) {
    for (const trBase* node : AllNodes(root))
      if (kind_.has(node)) Start(node);
  }
  long NumFound() const { return found_; }
  /// The node with the most of its kind below it, and their number with its own; where there are no rings.
  const trBase* Deepest() const { return deepest_; }
  long Depth() const { return depth_; }

 private:
  enum class State { kNew, kOnPath, kDone };
  struct Step {
    const trBase* node;
    std::vector<const trBase*> called;
    size_t next = 0;
    long depth = 1;
  };
  struct Seen {
    State state = State::kNew;
    long depth = 0;
  };

  void Start(const trBase* node) {
    if (seen_[node].state == State::kNew) Enter(node);
    while (!path_.empty()) {
      Step& step = path_.back();
      if (step.next == step.called.size()) {
        Leave(step);
        continue;
      }
      const trBase* const next = step.called[step.next++];
      const Seen seen = seen_[next];
      step.depth = std::max(step.depth, seen.depth + 1);
      if (seen.state == State::kOnPath) Report(next);
      if (seen.state == State::kNew) Enter(next);
    }
  }

  void Enter(const trBase* node) {
    seen_[node].state = State::kOnPath;
    path_.push_back({node, kind_.asked(node)});
  }

  void Leave(const Step& step) {
    const long depth = step.depth;
    seen_[step.node] = {State::kDone, depth};
    if (depth > depth_) {
      depth_ = depth;
      deepest_ = step.node;
    }
    path_.pop_back();
    if (!path_.empty()) path_.back().depth = std::max(path_.back().depth, depth + 1);
  }

  void Report(const trBase* first) {
    ++found_;
    if (isQuiet_) return;
    constexpr size_t kNamed = 12;
    auto step = std::find_if(path_.begin(), path_.end(), [first](const Step& s) { return s.node == first; });
    std::string text = std::string("the ") + kind_.noun + " feeds itself: ";
    for (size_t named = 0; step != path_.end(); ++step, ++named) {
      if (named < kNamed) text += step->node->NameAndPath() + " <- ";
      if (named == kNamed) text += "... <- ";
    }
    const trScopedErrorsWarningsContext context(first);
    trError(text + first->NameAndPath());
  }

  const Kind& kind_;
  const bool isQuiet_;
  std::unordered_map<const trBase*, Seen> seen_;
  std::vector<Step> path_;
  long found_ = 0;
  const trBase* deepest_ = nullptr;
  long depth_ = 0;
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

long ReportShaderRings(trBase* root, void (*reportDepth)(const trString&)) {
  const RingSearch search(root, kShaders, false);
  if (search.NumFound() == 0 && search.Depth() > trShadingInterface::kMaxShaderDepth) {
    const trScopedErrorsWarningsContext context(search.Deepest());
    reportDepth("the shader network is " + std::to_string(search.Depth()) + " shaders deep; " +
                std::to_string(trShadingInterface::kMaxShaderDepth) + " are the most");
  }
  return search.NumFound();
}

long ReportHeightfieldRings(trBase* root) { return RingSearch(root, kHeightfields, false).NumFound(); }

bool HasShaderRing(trBase* root) { return RingSearch(root, kShaders, true).NumFound() > 0; }

}  // namespace ovhost
