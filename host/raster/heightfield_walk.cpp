// Bringing a heightfield and all it depends on up to date: a depth-first walk without recursion.
#include "host/raster/heightfield_walk.h"

#include <algorithm>
#include <exception>

#include "host/base/session_context.h"
#include "host/node/node_data.h"
#include "host/node/ring_search.h"

namespace {

std::atomic<std::uint32_t> changes{1};
thread_local const ovhost::HeightfieldWalk* current = nullptr;
thread_local int nesting = 0;

/// A node's operation may evaluate shaders that ask for other heightfields, which begins a walk inside the
/// walk. More levels than this are a network that wasn't meant.
constexpr int kMaxNesting = 32;

const ovhost::RingKind kHeightfields = {
    "heightfield", [](const trBase* node) { return dynamic_cast<const trHeightfield*>(node) != nullptr; },
    [](const trBase* node) {
      const std::vector<trHeightfield*> linked = ovhost::LinkedHeightfields(*node);
      return std::vector<const trBase*>(linked.begin(), linked.end());
    }};

}  // namespace

trHeightfieldTurn::trHeightfieldTurn() { ovhost::SessionContext::Current().heightfieldTurn.lock(); }
trHeightfieldTurn::~trHeightfieldTurn() { ovhost::SessionContext::Current().heightfieldTurn.unlock(); }

namespace ovhost {

std::uint64_t HeightfieldState() {
  return std::uint64_t{GraphGeneration()} << 32 | changes.load(std::memory_order_acquire);
}
void BumpHeightfieldState() {
  // Skips 0, so that no state is 0.
  if (changes.fetch_add(1, std::memory_order_acq_rel) + 1 == 0) changes.fetch_add(1);
}

std::vector<trHeightfield*> LinkedHeightfields(const trBase& node) {
  std::vector<trHeightfield*> linked;
  for (const trParamInfo& param : node.Data().params)
    if (param.type >= trParamType::kNodeLink)
      if (trBase* other = static_cast<const trFile*>(param.member)->LinkedNode(true))
        if (auto* heightfield = dynamic_cast<trHeightfield*>(other)) linked.push_back(heightfield);
  return linked;
}

long ReportHeightfieldRings(trBase* root) { return RingSearch(root, kHeightfields, false).NumFound(); }

HeightfieldWalk::HeightfieldWalk() : outer_(current), state_(HeightfieldState()) {
  current = this;
  ++nesting;
}
HeightfieldWalk::~HeightfieldWalk() {
  current = outer_;
  --nesting;
}

const HeightfieldWalk* HeightfieldWalk::Current() { return current; }

bool HeightfieldWalk::HasResult(const trHeightfield& node, long& result) const {
  if (node.operatedAt_.load(std::memory_order_relaxed) != state_) return false;
  result = node.operatedResult_.load(std::memory_order_relaxed);
  return true;
}

long HeightfieldWalk::Run(trHeightfield& wanted) {
  if (nesting > kMaxNesting) {
    const trScopedErrorsWarningsContext context(&wanted);
    trError("The heightfield asks through shaders for more heightfields than are sensible.");
    return 0;
  }
  Enter(wanted);
  while (!path_.empty()) {
    Step& step = path_.back();
    if (step.next == step.inputs.size()) {
      trHeightfield& node = *step.node;
      path_.pop_back();
      Operate(node);
      marks_[&node] = Mark::kDone;
      continue;
    }
    trHeightfield& input = *step.inputs[step.next++];
    const auto mark = marks_.find(&input);
    if (mark == marks_.end())
      Enter(input);
    else if (mark->second == Mark::kOnPath)
      FailRing(input);
  }
  long result = 0;
  HasResult(wanted, result);
  return result;
}

void HeightfieldWalk::Enter(trHeightfield& node) {
  long known;
  if (HasResult(node, known)) {
    marks_[&node] = Mark::kDone;
  } else if (node.isOperating_) {
    // Asked for by a shader that this very node is evaluating.
    const trScopedErrorsWarningsContext context(&node);
    trError("The heightfield feeds itself.");
    Keep(node, 0);
    marks_[&node] = Mark::kDone;
  } else {
    marks_[&node] = Mark::kOnPath;
    path_.push_back({&node, LinkedHeightfields(node)});
  }
}

void HeightfieldWalk::Keep(trHeightfield& node, long result) const {
  node.operatedResult_.store(result, std::memory_order_relaxed);
  node.operatedAt_.store(state_, std::memory_order_release);
}

void HeightfieldWalk::Operate(trHeightfield& node) {
  long result = 0;
  if (HasResult(node, result)) return;  // part of a ring
  const trScopedErrorsWarningsContext context(&node);
  node.isOperating_ = true;
  try {
    if (node.isValid_ && node.followsInputs_ && node.inputsVersion_ != node.InputsVersion())
      node.DropValidity();
    result = node.HfOperate();
  } catch (const std::exception& problem) {
    trError(trString("The heightfield couldn't be made: ") + problem.what());
    result = 0;
  }
  node.isOperating_ = false;
  Keep(node, result);
}

void HeightfieldWalk::FailRing(trHeightfield& first) {
  {
    const trScopedErrorsWarningsContext context(&first);
    trError("The heightfield feeds itself.");
  }
  const auto begin =
      std::find_if(path_.begin(), path_.end(), [&first](const Step& step) { return step.node == &first; });
  for (auto step = begin; step != path_.end(); ++step) Keep(*step->node, 0);
}

}  // namespace ovhost
