// Finds rings of nodes by depth-first search.
#include "host/node/ring_search.h"

#include <algorithm>
#include <string>

#include "core/messages.h"
#include "host/node/node_data.h"

namespace ovhost {

RingSearch::RingSearch(trBase* root, const RingKind& kind, bool isQuiet) : kind_(kind), isQuiet_(isQuiet) {
  for (const trBase* node : AllNodes(root))
    if (kind_.has(node)) Start(node);
}

void RingSearch::Start(const trBase* node) {
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

void RingSearch::Enter(const trBase* node) {
  seen_[node].state = State::kOnPath;
  path_.push_back({node, kind_.asked(node)});
}

void RingSearch::Leave(const Step& step) {
  const long depth = step.depth;
  seen_[step.node] = {State::kDone, depth};
  if (depth > depth_) {
    depth_ = depth;
    deepest_ = step.node;
  }
  path_.pop_back();
  if (!path_.empty()) path_.back().depth = std::max(path_.back().depth, depth + 1);
}

void RingSearch::Report(const trBase* first) {
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

}  // namespace ovhost
