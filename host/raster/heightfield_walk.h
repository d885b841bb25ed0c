// Bringing a heightfield and all it depends on up to date, inputs first.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "core/heightfield.h"

namespace ovhost {

/// Stands for the state of all nodes as far as heightfields depend on it; never 0. Thread-safe.
std::uint64_t HeightfieldState();
/// Something changed that rasters may depend on. Thread-safe.
void BumpHeightfieldState();

/// The heightfields that a node's links lead to, by parameter.
std::vector<trHeightfield*> LinkedHeightfields(const trBase& node);
/// Reports as an error every ring of heightfields that feed themselves, once a ring, naming its nodes.
/// Returns how many there are. Main thread only.
OV_API long ReportHeightfieldRings(trBase* root);

/// One request. The caller holds the turn.
class HeightfieldWalk {
 public:
  HeightfieldWalk();
  ~HeightfieldWalk();
  HeightfieldWalk(const HeightfieldWalk&) = delete;
  HeightfieldWalk& operator=(const HeightfieldWalk&) = delete;

  long Run(trHeightfield& wanted);
  /// The walk under way on this thread, or null.
  static const HeightfieldWalk* Current();
  /// Whether the node was dealt with, and its result.
  bool HasResult(const trHeightfield& node, long& result) const;

 private:
  struct Step {
    trHeightfield* node;
    std::vector<trHeightfield*> inputs;
    std::size_t next = 0;
  };
  enum class Mark : unsigned char { kOnPath, kDone };

  void Enter(trHeightfield& node);
  void Operate(trHeightfield& node);
  void Keep(trHeightfield& node, long result) const;
  void FailRing(trHeightfield& first);

  const HeightfieldWalk* const outer_;
  const std::uint64_t state_;
  std::unordered_map<const trHeightfield*, Mark> marks_;
  std::vector<Step> path_;  ///< a stack of its own: chains may be a hundred thousand long
};

}  // namespace ovhost
