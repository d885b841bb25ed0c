// Workers that walk four drops at a time.
#include "heightfield/drop_lanes.h"

#include "heightfield/drop_lanes-inl.h"
#include "heightfield/drop_numbers.h"

#ifdef OV_FOUR_LANES

namespace {

/// AmongOthers, for the lanes' pairs of neighbours.
struct LanesAmongOthers : AmongOthers {
  OV_LANES_INLINE static void StorePair(float* p, Float4 of, int first) {
    Store(p, of[first]);
    Store(p + 1, of[first + 1]);
  }
};

/// Deals drops out to lanes.
class Dealer {
 public:
  Dealer(const DropField& field, trMersenneTwister& generator, std::int64_t drops)
      : field_(field), drops_(drops), numbers_(generator, false) {}

  /// The next drop that takes a step, to a lane. False when there is none; or it was stopped on the way, for
  /// drops without a step can be many.
  template <typename Lanes>
  bool Deal(Lanes& lanes, int lane, const DropWatch& watch) {
    while (dealt_ < drops_ && !(dealt_ % 1024 == 0 && watch.MustStop())) {
      ++dealt_;
      const double startX = numbers_.Unit(), startY = numbers_.Unit();
      const int steps = StepCount(numbers_.Unit(), field_.settings.flowDistance);
      if (steps <= 0) continue;
      lanes.Start(lane, StartCell(startX, field_.width), StartCell(startY, field_.height), steps);
      return true;
    }
    return false;
  }
  std::int64_t Dealt() const { return dealt_; }

  /// A draw for each lane, less a half.
  OV_LANES_INLINE Double4 Centred() {
    Int4 raw;
    std::memcpy(&raw, numbers_.Raw(kDropLanes), sizeof raw);
    return CentredDraws(raw);
  }

 private:
  const DropField& field_;
  const std::int64_t drops_;
  std::int64_t dealt_ = 0;
  DropNumbers numbers_;
};

template <BorderFlow kBorder, bool kNearest>
OV_LANES bool WalkAll(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
                      DropWatch& watch) {
  constexpr unsigned kRoundsBetweenChecks = 50 / (2 * kDropLanes);
  DropLanes<kBorder, kNearest, LanesAmongOthers> lanes(field);
  Dealer dealer(field, generator, drops);
  for (unsigned round = 0;; ++round) {
    if (round % kRoundsBetweenChecks == 0) {
      watch.Report(std::max<std::int64_t>(0, dealer.Dealt() - kDropLanes), drops);
      if (watch.MustStop()) return false;
    }
    if (lanes.ActiveLanes() != kAllLanes) {
      for (int l = 0; l < kDropLanes; ++l)
        if (!lanes.isActive[l] && !dealer.Deal(lanes, l, watch)) break;
      if (lanes.ActiveLanes() == 0) return !watch.MustStop();
    }
    lanes.TakeSlopes();
    for (int step = 0; step < 2; ++step) {
      const Double4 noiseY = dealer.Centred(), noiseX = dealer.Centred();
      const Double4 a = dealer.Centred(), b = dealer.Centred();
      lanes.TakeStep(noiseY, noiseX, a, b);
    }
  }
}

}  // namespace

bool CanWalkSideBySide(const DropField& field) {
  constexpr int kMost = DropLanes<BorderFlow::kStop, false, LanesAmongOthers>::kMostPoints;
  return __builtin_cpu_supports("avx2") && field.width <= kMost && field.height <= kMost;
}

bool WalkDropsSideBySide(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
                         DropWatch& watch) {
  return ForDropKind(field.settings, [&]<BorderFlow kBorder, bool kNearest>() {
    return WalkAll<kBorder, kNearest>(field, generator, drops, watch);
  });
}

#else

bool CanWalkSideBySide(const DropField&) { return false; }
bool WalkDropsSideBySide(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
                         DropWatch& watch) {
  return WalkDropsAmongOthers(field, generator, drops, watch);
}

#endif
