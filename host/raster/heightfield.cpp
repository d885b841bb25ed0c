// The heightfield node: validity, scales and their inheritance, corners, range.
#include "core/heightfield.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <exception>

#include "core/guarded.h"
#include "core/project.h"
#include "host/node/node_data.h"
#include "host/raster/heightfield_walk.h"

namespace {

/// Changes of who has a scale of its own.
std::atomic<std::uint32_t> scaleChanges{1};

std::uint64_t ScaleState() {
  return std::uint64_t{ovhost::GraphGeneration()} << 32 | scaleChanges.load(std::memory_order_acquire);
}

/// Follows a chain that may end in a ring (Brent 1980).
class RingGuard {
 public:
  /// Whether the walk came back to where it was.
  bool IsRing(const trHeightfield* at) {
    if (at == anchor_) return true;
    if (++steps_ == limit_) {
      anchor_ = at;
      steps_ = 0;
      limit_ *= 2;
    }
    return false;
  }

 private:
  const trHeightfield* anchor_ = nullptr;
  std::uint64_t steps_ = 0, limit_ = 2;
};

/// By hand, not through Highway: these already wait for memory, so that wider lanes would gain nothing.
using Quad = float __attribute__((vector_size(16)));

/// The range of all values but those that aren't a number. Lanes lie side by side, so that the pass runs at
/// the memory's speed.
trHeightRange RangeOfNumbers(const float* values, std::int64_t count) {
  constexpr int kLanes = 4, kQuads = 4;
  trHeightRange range;
  Quad lowest[kQuads], highest[kQuads];
  std::fill_n(lowest, kQuads, Quad{} + range.lowest);
  std::fill_n(highest, kQuads, Quad{} + range.highest);
  std::int64_t i = 0;
  for (; i + kLanes * kQuads <= count; i += kLanes * kQuads)
    for (int q = 0; q < kQuads; ++q) {
      Quad v;
      std::memcpy(&v, values + i + q * kLanes, sizeof v);
      lowest[q] = v < lowest[q] ? v : lowest[q];
      highest[q] = v > highest[q] ? v : highest[q];
    }
  for (int q = 0; q < kQuads; ++q)
    for (int k = 0; k < kLanes; ++k) range.Take({lowest[q][k], highest[q][k]});
  for (; i < count; ++i)
    if (!std::isnan(values[i])) range.Take({values[i], values[i]});
  return range;
}

}  // namespace

void trHeightRange::Take(const float* heights, std::int64_t count) {
  trHeightRange range = RangeOfNumbers(heights, count);
  if (range.lowest < -FLT_MAX || range.highest > FLT_MAX) {
    range = {};
    for (std::int64_t i = 0; i < count; ++i)
      if (std::isfinite(heights[i])) range.Take({heights[i], heights[i]});
  }
  Take(range);
}

trHeightfield::trHeightfield() {
  DeclareTrue("is_heightfield");
  Param(inputNode_, "input_node", "").About("Heightfield that this one works on.");
}

trHeightfield::~trHeightfield() = default;

long trHeightfield::HfOperate() {
  HfValidate();
  return 1;
}

long trHeightfield::HfOperateTS() {
  if (operatedAt_.load(std::memory_order_acquire) == ovhost::HeightfieldState())
    return operatedResult_.load(std::memory_order_relaxed);
  const trHeightfieldTurn turn;
  // Within a walk, the state is the one that the walk began with.
  long result;
  if (const auto* walk = ovhost::HeightfieldWalk::Current(); walk && walk->HasResult(*this, result))
    return result;
  try {
    return ovhost::HeightfieldWalk().Run(*this);
  } catch (const std::exception& problem) {
    const trScopedErrorsWarningsContext context(this);
    trError(trString("The heightfield couldn't be made: ") + problem.what());
    return 0;
  }
}

trHeightfield* trHeightfield::HfInput() const {
  return dynamic_cast<trHeightfield*>(inputNode_.LinkedNode());
}

std::uint64_t trHeightfield::InputsVersion() const {
  std::uint64_t hash = 1;
  for (const trHeightfield* input : ovhost::LinkedHeightfields(*this)) {
    hash = (hash ^ reinterpret_cast<std::uintptr_t>(input)) * 0x9e3779b97f4a7c15ull;
    hash = (hash ^ hash >> 29 ^ input->version_) * 0xbf58476d1ce4e5b9ull;
  }
  return hash;
}

void trHeightfield::HfValidate() {
  inputsVersion_ = InputsVersion();
  isValid_.store(1, std::memory_order_release);
}

void trHeightfield::DropValidity() {
  static std::atomic<std::uint64_t> versions{0};
  version_ = ++versions;
  isValid_.store(0, std::memory_order_release);
}

void trHeightfield::HfInvalidate() {
  DropValidity();
  ovhost::BumpHeightfieldState();
}

void trHeightfield::OnParamChanged(long index, trBase* who, unsigned char invalidate) {
  trBase::OnParamChanged(index, who);
  if (invalidate)
    HfInvalidate();
  else
    ovhost::BumpHeightfieldState();
  if (mayAffectPreviews_) trRequest3DPreviewUpdate();
}

void trHeightfield::OnParamChanged(long index, trBase* who) { OnParamChanged(index, who, 1); }

const trHeightfield* trHeightfield::ScaleOwner() const {
  const std::uint64_t state = ScaleState();
  const trHeightfield* owner = this;
  RingGuard guard;
  while (owner && !owner->scaleEnabled_) {
    if (owner->scaleOwnerAt_.load(std::memory_order_acquire) == state) {
      owner = owner->scaleOwner_.load(std::memory_order_relaxed);
      break;
    }
    owner = owner->HfInput();
    if (owner && guard.IsRing(owner)) owner = nullptr;
  }
  // All on the way have the same owner; the next one to ask is one of them or just behind.
  for (const trHeightfield* at = this; at && !at->scaleEnabled_; at = at->HfInput()) {
    if (at->scaleOwnerAt_.load(std::memory_order_relaxed) == state) break;
    at->scaleOwner_.store(owner, std::memory_order_relaxed);
    at->scaleOwnerAt_.store(state, std::memory_order_release);
  }
  return owner;
}

double trHeightfield::HfXScale() const {
  const trHeightfield* owner = ScaleOwner();
  return owner ? owner->xScale_ : 1;
}
double trHeightfield::HfYScale() const {
  const trHeightfield* owner = ScaleOwner();
  return owner ? owner->yScale_ : 1;
}
double trHeightfield::HfZScale() const {
  const trHeightfield* owner = ScaleOwner();
  return owner ? owner->zScale_ : 1;
}

void trHeightfield::HfSetScale(const double& x, const double& y, const double& z) {
  static constexpr double kMost = 1e200;
  const auto bounded = [](double v) { return std::isnan(v) ? 0.0 : std::clamp(v, -kMost, kMost); };
  xScale_ = bounded(x);
  yScale_ = bounded(y);
  zScale_ = bounded(z);
}

void trHeightfield::HfSetScaleEnabled(unsigned char enabled) {
  if (scaleEnabled_ == enabled) return;
  scaleEnabled_ = enabled;
  scaleChanges.fetch_add(1, std::memory_order_acq_rel);
}

void trHeightfield::HfSetLatLongEnabled(unsigned char enabled) { latLongEnabled_ = enabled; }
void trHeightfield::HfSetLatLongCorners(const trLatLongCorners& corners) { corners_ = corners; }

unsigned char trHeightfield::HfLatLongCorners(trLatLongCorners* corners) const {
  const trHeightfield* owner = this;
  RingGuard guard;
  while (owner && !owner->latLongEnabled_) {
    owner = owner->scaleEnabled_ ? nullptr : owner->HfInput();
    if (owner && guard.IsRing(owner)) owner = nullptr;
  }
  if (owner && corners) *corners = owner->corners_;
  return owner != nullptr;
}

void trHeightfield::HfFindZRange() {
  trHeightRange range;
  range.Take(reinterpret_cast<const float*>(pixels), std::int64_t{width} * height);
  HfSetZRange(range);
}

void trHeightfield::HfSetZRange(const trHeightRange& range) {
  const bool any = range.lowest <= range.highest;
  minZ_ = any ? range.lowest : 0;
  maxZ_ = any ? range.highest : 0;
}

double trHeightfield::Hf01FromZ(const double& z) const {
  return GuardedDivide(z - minZ_, static_cast<double>(maxZ_) - minZ_);
}
