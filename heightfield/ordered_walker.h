// One thread's part of a walk in order: its drops under way, its lanes, the ground that it claims.
#pragma once

#include "heightfield/drop_lanes-inl.h"

#ifdef OV_FOUR_LANES

#include <chrono>
#include <deque>
#include <thread>
#include <vector>

#include "heightfield/drop_stream.h"
#include "heightfield/drop_tiles.h"

/// What other threads see of a drop under way.
struct SharedSlot {
  std::atomic<std::int64_t> order{-1};
  /// The earlier drop that needs ground of this one; -1 for none.
  std::atomic<std::int64_t> displacedBy{-1};
};

/// What the threads of a run share.
struct OrderedRun {
  static constexpr int kSlots = 64;  ///< drops that a thread has under way

  OrderedRun(const DropField& dropField, trMersenneTwister& generator, std::int64_t drops, int threads)
      : field(dropField),
        stream(dropField, generator, drops),
        tiles(dropField),
        slots(new SharedSlot[static_cast<std::size_t>(threads) * kSlots]),
        hasMail(new std::atomic<bool>[threads]()) {}

  const DropField field;
  DropStream stream;
  DropTiles tiles;
  const std::unique_ptr<SharedSlot[]> slots;           ///< kSlots for each thread
  const std::unique_ptr<std::atomic<bool>[]> hasMail;  ///< of a thread: some of its drops are displaced
  std::atomic<bool> mustEnd{false};
  /// The drops before this order are over; on a cache line of its own, for all threads look at it all the
  /// time.
  alignas(64) std::atomic<std::int64_t> committed{0};
  alignas(64) std::atomic<std::int64_t> walked{0};  ///< the same counted among all drops
};

/// Accesses of lanes to ground that the thread's drops own.
struct LanesAlone : Alone {
  OV_LANES_INLINE static void StorePair(float* p, Float4 of, int first) {
    const float pair[2] = {of[first], of[first + 1]};
    std::memcpy(p, pair, sizeof pair);
  }
};

/// Walks drops ahead of their turn. Per-thread state.
template <BorderFlow kBorder, bool kNearest>
class OrderedWalker {
 public:
  OrderedWalker(OrderedRun& run, int thread)
      : run_(run),
        thread_(thread),
        firstSlot_(thread * kSlots),
        lanes_(run.field),
        slots_(kSlots),
        leftAt_(kSlots / kDropLanes) {
    for (int i = kSlots; i-- > 0;) free_.push_back(i);
    for (int l = 0; l < kDropLanes; ++l) Vacate(l);
  }

  /// Walks until all drops are over, or the run must end; `onRound` is called now and then.
  template <typename OnRound>
  OV_LANES void Run(const OnRound& onRound) {
    constexpr unsigned kRoundsBetweenCalls = 6;
    for (unsigned round = 0;; ++round) {
      if (round % kRoundsBetweenCalls == 0) onRound();
      if (run_.mustEnd.load(std::memory_order_relaxed)) return Abandon();
      if (run_.hasMail[thread_].load(std::memory_order_relaxed)) MakeWay();
      Commit();
      if (!waiting_.empty()) Wake();
      if (hasVacancy_ && !Occupy()) return;
      ClaimGround();
      if (lanes_.ActiveLanes() == 0) {
        Rest();
        continue;
      }
      rests_ = 0;
      lanes_.TakeSlopes();
      TakeSteps();
      TakeSteps();
      if (lanes_.ActiveLanes() != kAllLanes) EndDrops();
    }
  }

 private:
  static constexpr int kSlots = OrderedRun::kSlots;
  /// What a drop reads and writes in two steps from its cell (x, y): from x - kReachBefore to x +
  /// kReachAfter.
  static constexpr int kReachBefore = 2, kReachAfter = 4;

  enum class State { kFree, kReady, kRunning, kWaiting, kDone };

  /// A drop under way.
  struct Slot {
    StreamedDrop drop;
    State state = State::kFree;
    bool isFresh = true;  ///< it starts at its start, not where it was left
    bool endedEarly = false;
    int lane = -1;
    // What it waits for: that a drop is over, or that a tile has another owner.
    std::int64_t waitsForOrder = -1, waitsForTile = -1;
    DropTiles::OwnerId tileOwner = 0;
    std::vector<std::int64_t> tiles;
    std::vector<float> saved;  ///< the tiles' ground before
  };

  /// Another thread's turn.
  void Rest() {
    constexpr int kShortRests = 64;
    if (++rests_ <= kShortRests)
      std::this_thread::yield();
    else
      std::this_thread::sleep_for(std::chrono::microseconds(20));
  }

  // --- Order

  /// Closes the drops whose turn it is.
  void Commit() {
    while (!underWay_.empty()) {
      const int i = underWay_.front();
      const Slot& slot = slots_[i];
      const std::int64_t order = slot.drop.order;
      if (slot.state != State::kDone || run_.committed.load(std::memory_order_acquire) != order) return;
      run_.walked.store(slot.drop.index + 1, std::memory_order_relaxed);
      underWay_.pop_front();
      Free(i);
      run_.committed.store(order + 1, std::memory_order_release);
    }
  }
  void Free(int i) {
    Slot& slot = slots_[i];
    for (const std::int64_t tile : slot.tiles) run_.tiles.Release(tile);
    slot.tiles.clear();
    slot.saved.clear();
    slot.state = State::kFree;
    run_.slots[firstSlot_ + i].order.store(-1, std::memory_order_relaxed);
    free_.push_back(i);
    hasVacancy_ = true;
  }

  /// Undoes a drop: it will start again, or not at all.
  void RollBack(int i) {
    Slot& slot = slots_[i];
    // The drops behind one that ended early were dealt by where it ended.
    if (slot.endedEarly) DealAnew(slot, slot.drop.steps);
    slot.endedEarly = false;
    for (std::size_t k = 0; k < slot.tiles.size(); ++k) {
      run_.tiles.Restore(slot.tiles[k], &slot.saved[k * DropTiles::kPoints]);
      run_.tiles.Release(slot.tiles[k]);
    }
    slot.tiles.clear();
    slot.saved.clear();
    if (slot.state == State::kRunning) Vacate(slot.lane);
    slot.isFresh = true;
    MakeReady(slot);
  }
  /// Drops later than `slot`'s are dealt out anew, it having taken `steps` steps.
  void DealAnew(const Slot& slot, int steps) {
    while (underWay_.back() != &slot - slots_.data()) {
      const int last = underWay_.back();
      slots_[last].endedEarly = false;
      RollBack(last);
      underWay_.pop_back();
      Free(last);
    }
    run_.stream.GoBack(slot.drop, steps);
  }
  /// Undoes the drops whose ground earlier ones of other threads need, until those are over.
  void MakeWay() {
    run_.hasMail[thread_].exchange(false, std::memory_order_acquire);
    for (int i = 0; i < kSlots; ++i) {
      const std::int64_t by = run_.slots[firstSlot_ + i].displacedBy.exchange(-1, std::memory_order_relaxed);
      if (by < 0 || slots_[i].state == State::kFree || slots_[i].drop.order <= by) continue;
      RollBack(i);
      Await(i, by);
    }
  }
  void Await(int i, std::int64_t order) {
    slots_[i].state = State::kWaiting;
    slots_[i].waitsForOrder = order;
    waiting_.push_back(i);
  }
  void Abandon() {
    for (const int i : underWay_) {
      slots_[i].endedEarly = false;
      RollBack(i);
    }
  }

  // --- Lanes

  void Vacate(int l) {
    lanes_.isActive[l] = 0;
    slotOf_[l] = -1;
    hasVacancy_ = true;
  }
  /// Gives idle lanes the earliest drops there are. False when all drops are over.
  bool Occupy() {
    for (int l = 0; l < kDropLanes; ++l) {
      if (slotOf_[l] >= 0) continue;
      const int i = NextDrop();
      if (i < 0) return !underWay_.empty() || !isEnd_;
      Slot& slot = slots_[i];
      slot.state = State::kRunning;
      slot.lane = l;
      slotOf_[l] = i;
      if (!slot.isFresh) {
        lanes_.CopyLane(l, leftAt_[i / kDropLanes], i % kDropLanes);
        lanes_.isActive[l] = 0;
      }
      mustClaim_[l] = -1;
    }
    hasVacancy_ = false;
    return true;
  }
  int NextDrop() {
    if (isAnyReady_)
      for (const int i : underWay_)
        if (slots_[i].state == State::kReady) return i;
    isAnyReady_ = false;
    if (free_.empty()) return -1;
    const int i = free_.back();
    const auto result = run_.stream.Take(run_.committed.load(std::memory_order_acquire), slots_[i].drop);
    isEnd_ = result == DropStream::Result::kEnd;
    if (result != DropStream::Result::kDrop) return -1;
    free_.pop_back();
    underWay_.push_back(i);
    slots_[i].state = State::kReady;
    slots_[i].isFresh = true;
    slots_[i].endedEarly = false;
    run_.slots[firstSlot_ + i].order.store(slots_[i].drop.order, std::memory_order_release);
    return i;
  }
  /// Sets the drop of a lane aside; ClaimTile has noted what it waits for.
  void Suspend(int l) {
    const int i = slotOf_[l];
    if (!slots_[i].isFresh) leftAt_[i / kDropLanes].CopyLane(i % kDropLanes, lanes_, l);
    slots_[i].state = State::kWaiting;
    waiting_.push_back(i);
    Vacate(l);
  }
  void Wake() {
    const std::int64_t committed = run_.committed.load(std::memory_order_acquire);
    std::erase_if(waiting_, [&](int i) {
      Slot& slot = slots_[i];
      if (slot.state != State::kWaiting) return true;
      if (slot.waitsForOrder >= 0 && committed <= slot.waitsForOrder) return false;
      if (slot.waitsForOrder < 0 && run_.tiles.Owner(slot.waitsForTile) == slot.tileOwner) {
        // It may have been undone for somebody else, and have the tile again.
        AskForTile(slot);
        return false;
      }
      MakeReady(slot);
      return true;
    });
  }
  void MakeReady(Slot& slot) {
    slot.state = State::kReady;
    isAnyReady_ = hasVacancy_ = true;
  }

  OV_LANES_INLINE void TakeSteps() {
    alignas(16) static constexpr unsigned int kNone[4] = {};
    Float4 numbers[kDropLanes];
    for (int l = 0; l < kDropLanes; ++l) {
      const auto* const raw =
          lanes_.isActive[l]
              ? run_.stream.Numbers(slots_[slotOf_[l]].drop.numbers + std::int64_t{4} * lanes_.step[l])
              : kNone;
      std::memcpy(&numbers[l], raw, sizeof numbers[l]);
    }
    Transpose(numbers);
    Double4 draws[4];
    for (int k = 0; k < 4; ++k) draws[k] = CentredDraws(reinterpret_cast<Int4>(numbers[k]));
    lanes_.TakeStep(draws[0], draws[1], draws[2], draws[3]);
  }
  void EndDrops() {
    for (int l = 0; l < kDropLanes; ++l) {
      if (slotOf_[l] < 0 || lanes_.isActive[l]) continue;
      Slot& slot = slots_[slotOf_[l]];
      slot.state = State::kDone;
      const int steps = lanes_.step[l];
      Vacate(l);
      if (steps < slot.drop.steps) {
        slot.endedEarly = true;
        DealAnew(slot, steps);
      }
    }
  }

  // --- Ground

  /// Lets each lane that is near the edge of its tiles claim those it may touch in two steps; those that
  /// can't have them stand aside.
  OV_LANES_INLINE void ClaimGround() {
    const Int4 isAtEdge = (lanes_.cellX < lowX_) | (lanes_.cellX > highX_) | (lanes_.cellY < lowY_) |
                          (lanes_.cellY > highY_) | mustClaim_;
    const int lanes = LanesOf(isAtEdge);
    if (lanes == 0) return;
    for (int l = 0; l < kDropLanes; ++l)
      if ((lanes >> l & 1) && slotOf_[l] >= 0) ClaimGround(l);
  }
  [[gnu::noinline]] void ClaimGround(int l) {
    Slot& slot = slots_[slotOf_[l]];
    const int x = slot.isFresh ? slot.drop.x : lanes_.cellX[l];
    const int y = slot.isFresh ? slot.drop.y : lanes_.cellY[l];
    if (!ClaimAround(slot, l, x, y)) return Suspend(l);
    if (slot.isFresh) lanes_.Start(l, slot.drop.x, slot.drop.y, slot.drop.steps);
    slot.isFresh = false;
    lanes_.isActive[l] = -1;
  }

  /// The tiles that a drop at (x, y) may touch in two steps; and how far it may walk within them.
  bool ClaimAround(Slot& slot, int l, int x, int y) {
    const int width = run_.field.width, height = run_.field.height;
    const int beginX = x - kReachBefore, endX = x + kReachAfter;
    const int beginY = y - kReachBefore, endY = y + kReachAfter;
    // Near zero, where floats are fine, two steps may be longer than two by a rounding.
    const bool isInside = beginX > 0 && endX < width && beginY > 0 && endY < height;
    mustClaim_[l] = isInside ? 0 : -1;
    if (!isInside) [[unlikely]]
      return ClaimAtBorder(slot, beginX - 1, endX, beginY - 1, endY);
    constexpr int kInTile = DropTiles::kSide - 1;
    lowX_[l] = std::max(1, beginX & ~kInTile) + kReachBefore;
    lowY_[l] = std::max(1, beginY & ~kInTile) + kReachBefore;
    highX_[l] = std::min(width - 1, endX | kInTile) - kReachAfter;
    highY_[l] = std::min(height - 1, endY | kInTile) - kReachAfter;
    return ClaimRectangle(slot, beginX, endX, beginY, endY);
  }
  bool ClaimAtBorder(Slot& slot, int beginX, int endX, int beginY, int endY) {
    // Ranges of points on either axis: this side of the border and, where drops go around, the other one.
    struct Range {
      int begin, end;
    };
    const auto ranges = [](int begin, int end, int size, Range(&of)[2]) {
      of[0] = {std::max(begin, 0), std::min(end, size - 1)};
      of[1] = {0, -1};
      if (kBorder != BorderFlow::kAround) return;
      if (begin < 0) of[1] = {size + begin, size - 1};
      if (end >= size) of[1] = {0, end - size};
    };
    Range columns[2], rows[2];
    ranges(beginX, endX, run_.field.width, columns);
    ranges(beginY, endY, run_.field.height, rows);
    for (const Range& row : rows)
      for (const Range& column : columns)
        if (row.begin <= row.end && column.begin <= column.end &&
            !ClaimRectangle(slot, column.begin, column.end, row.begin, row.end))
          return false;
    return true;
  }
  bool ClaimRectangle(Slot& slot, int beginX, int endX, int beginY, int endY) {
    constexpr int kSide = DropTiles::kSide;
    std::int64_t tiles[9];  // of at most 8 by 8 points
    int count = 0;
    for (int y = beginY & ~(kSide - 1); y <= endY; y += kSide)
      for (int x = beginX & ~(kSide - 1); x <= endX; x += kSide) {
        const std::int64_t tile = run_.tiles.At(x, y);
        if (run_.tiles.Owner(tile) == IdOf(slot)) continue;
        run_.tiles.Prefetch(tile);
        tiles[count++] = tile;
      }
    return std::all_of(tiles, tiles + count, [&](std::int64_t tile) { return ClaimTile(slot, tile); });
  }
  DropTiles::OwnerId IdOf(const Slot& slot) const {
    return static_cast<DropTiles::OwnerId>(firstSlot_ + (&slot - slots_.data()) + 1);
  }

  /// False when the drop has to wait for a tile, `slot` saying for what.
  bool ClaimTile(Slot& slot, std::int64_t tile) {
    for (;;) {
      const DropTiles::OwnerId owner = run_.tiles.Owner(tile);
      if (owner == IdOf(slot)) return true;
      if (owner == 0) {
        if (!run_.tiles.Take(tile, IdOf(slot))) continue;
        slot.tiles.push_back(tile);
        slot.saved.resize(slot.saved.size() + DropTiles::kPoints);
        run_.tiles.Save(tile, &slot.saved[slot.saved.size() - DropTiles::kPoints]);
        return true;
      }
      const int other = static_cast<int>(owner) - 1 - firstSlot_;
      if (other < 0 || other >= kSlots) return WaitForOtherThread(slot, tile, owner), false;
      if (slots_[other].drop.order < slot.drop.order) {
        slot.waitsForOrder = slots_[other].drop.order;
        return false;
      }
      RollBack(other);
    }
  }
  void WaitForOtherThread(Slot& slot, std::int64_t tile, DropTiles::OwnerId owner) {
    const std::int64_t order = run_.slots[owner - 1].order.load(std::memory_order_acquire);
    slot.waitsForOrder = order >= 0 && order < slot.drop.order ? order : -1;
    slot.waitsForTile = tile;
    slot.tileOwner = owner;
    AskForTile(slot);
  }
  /// Lets a later drop of another thread be undone if it has the tile that this one waits for. Should its
  /// slot have got another drop meanwhile, that one is undone for nothing, and nothing worse.
  void AskForTile(const Slot& slot) {
    SharedSlot& other = run_.slots[slot.tileOwner - 1];
    if (other.order.load(std::memory_order_acquire) <= slot.drop.order) return;
    const std::int64_t asked = other.displacedBy.load(std::memory_order_relaxed);
    if (asked >= 0 && asked <= slot.drop.order) return;
    other.displacedBy.store(slot.drop.order, std::memory_order_relaxed);
    run_.hasMail[(slot.tileOwner - 1) / kSlots].store(true, std::memory_order_release);
  }

  OrderedRun& run_;
  const int thread_, firstSlot_;
  DropLanes<kBorder, kNearest, LanesAlone> lanes_;
  Int4 lowX_{}, highX_{}, lowY_{}, highY_{};  ///< cells where a lane needs no further tiles
  Int4 mustClaim_{};                          ///< it asks anyway
  int slotOf_[kDropLanes];                    ///< -1 for idle lanes

  std::vector<Slot> slots_;
  std::vector<DropLaneState> leftAt_;  ///< of the drops that were set aside, by slot
  std::vector<int> free_;
  std::deque<int> underWay_;  ///< slots in the order of their drops
  std::vector<int> waiting_;  ///< slots, some of which may wait no longer
  bool isAnyReady_ = false, hasVacancy_ = true, isEnd_ = false;
  int rests_ = 0;  ///< in a row
};

#endif
