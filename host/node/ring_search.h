// Rings of nodes that feed themselves.
#pragma once

#include <unordered_map>
#include <vector>

#include "core/node.h"

namespace ovhost {

/// What may feed itself: its name, which nodes are of it, and what such a node asks.
struct RingKind {
  const char* noun;
  bool (*has)(const trBase* node);
  std::vector<const trBase*> (*asked)(const trBase* node);
};

/// Looks for rings below `root`, and tells of each as an error unless it is to be quiet. A depth-first search
/// with a stack of its own: chains may be tens of thousands long.
class RingSearch {
 public:
  RingSearch(trBase* root, const RingKind& kind, bool isQuiet);
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

  void Start(const trBase* node);
  void Enter(const trBase* node);
  void Leave(const Step& step);
  void Report(const trBase* first);

  const RingKind& kind_;
  const bool isQuiet_;
  std::unordered_map<const trBase*, Seen> seen_;
  std::vector<Step> path_;
  long found_ = 0;
  const trBase* deepest_ = nullptr;
  long depth_ = 0;
};

}  // namespace ovhost
