// The walk of bilinear drops in scalar arithmetic.
#include "heightfield/drop_walk.h"

#include "heightfield/drop_access.h"
#include "heightfield/drop_math.h"
#include "heightfield/drop_numbers.h"

namespace {

/// Four points with their bilinear weights: (x, y), (x + 1, y), (x, y + 1), (x + 1, y + 1), fewer where the
/// border makes some the same.
struct Corners {
  std::int64_t at[4];
  float weight[4];
};

/// The drop being walked, and what all drops of a run share.
template <BorderFlow kBorder, bool kNearest, typename Access>
class Walker {
 public:
  explicit Walker(const DropField& field)
      : heights_(field.heights),
        width_(field.width),
        height_(field.height),
        settings_(field.settings),
        wide_(static_cast<float>(field.width)),
        high_(static_cast<float>(field.height)),
        evenShare_(std::max(0.0f, field.settings.depositionRate) + 1) {}

  void Start(int x, int y, int steps) {
    x_ = static_cast<float>(x);
    y_ = static_cast<float>(y);
    cellX_ = x;
    cellY_ = y;
    const std::int64_t start = Index(x, y);
    corners_ = {{start, start, start, start}, {1, 0, 0, 0}};
    surface_ = Access::Load(heights_ + start);
    carried_ = fall_ = 0;
    life_ = 1;
    ageing_ = 1.0 / steps;
    slopeX_ = slopeY_ = 0;
    isStopped_ = false;
  }
  bool IsStopped() const { return isStopped_; }

  [[gnu::always_inline]] void TakeStep(int step, int remaining, const double* numbers) {
    if (step % 2 == 0) TakeSlope();
    slopeY_ += numbers[0] * 0.001;
    slopeX_ += numbers[1] * 0.001;
    Move(numbers[2], numbers[3]);
    const Corners next = Enter(remaining);
    LayDown(remaining);
    fall_ = surface_ - Interpolated(next);
    PickUp();
    corners_ = next;
    surface_ = Interpolated(next);
    life_ = static_cast<float>(static_cast<double>(life_) - ageing_);
  }

 private:
  std::int64_t Index(int x, int y) const { return std::int64_t{y} * width_ + x; }

  [[gnu::always_inline]] void TakeSlope() {
    if constexpr (kNearest) {
      cellX_ = std::clamp(TruncatedInt(x_ + 0.5f), 0, width_ - 1);
      cellY_ = std::clamp(TruncatedInt(y_ + 0.5f), 0, height_ - 1);
    }
    const bool inside = cellX_ >= 2 && cellX_ < width_ - 2 && cellY_ >= 2 && cellY_ < height_ - 2;
    if (inside) [[likely]] {
      const float* centre = heights_ + Index(cellX_, cellY_);
      SumTaps(Access::Load(centre), [&](int dx, int dy) {
        return Access::Load(centre + dy * static_cast<std::ptrdiff_t>(width_) + dx);
      });
    } else {
      SumTaps(Access::Load(heights_ + Index(cellX_, cellY_)), [&](int dx, int dy) {
        return Access::Load(heights_ + Index(std::clamp(cellX_ + dx, 0, width_ - 1),
                                             std::clamp(cellY_ + dy, 0, height_ - 1)));
      });
    }
  }
  template <typename At>
  [[gnu::always_inline]] void SumTaps(float centre, const At& at) {
    double slopeX = 0, slopeY = 0;
#pragma GCC unroll 12
    for (const auto [dx, dy] : SlopeFilter::kTaps) {
      const double t = filter_.Weighted(at(dx, dy) - centre, dx, dy);
      slopeX += dx * t;
      slopeY += dy * t;
    }
    slopeX_ = slopeX;
    slopeY_ = slopeY;
  }

  /// One grid interval downhill, blurred by two numbers; or anywhere, where it slips.
  [[gnu::always_inline]] void Move(double a, double b) {
    const double slope = std::sqrt(slopeY_ * slopeY_ + slopeX_ * slopeX_);
    double alongX = b, alongY = a;
    if (!(slope > settings_.slipLimit)) {
      const double wander = settings_.diffusionAdapts ? settings_.diffusion * slope : settings_.diffusion;
      const double inverse = SafeReciprocal(slope);
      alongX = -slopeX_ * inverse + b * wander;
      alongY = -slopeY_ * inverse + a * wander;
    }
    const double inverse = SafeReciprocal(std::sqrt(alongX * alongX + alongY * alongY));
    x_ = static_cast<float>(static_cast<double>(x_) + alongX * inverse);
    y_ = static_cast<float>(static_cast<double>(y_) + alongY * inverse);
  }

  /// Finds the cell of the new position and its corners; the border may end the walk or move the drop.
  [[gnu::always_inline]] Corners Enter(int remaining) {
    std::int64_t ix = FlooredInt(x_), iy = FlooredInt(y_);
    if constexpr (kBorder == BorderFlow::kAround) {
      if (ix < 0) x_ += wide_, ix += width_;
      if (iy < 0) y_ += high_, iy += height_;
      if (ix > width_ - 1) x_ -= wide_, ix -= width_;
      if (iy > height_ - 1) y_ -= high_, iy -= height_;
    } else {
      const std::int64_t before = kBorder == BorderFlow::kStop ? 1 : remaining;
      const std::int64_t beyond = kBorder == BorderFlow::kStop ? 0 : std::int64_t{remaining} - 1;
      isStopped_ = ix < -before || ix > beyond + width_ || iy < -before || iy > beyond + height_;
    }
    cellX_ = static_cast<int>(std::clamp<std::int64_t>(ix, 0, width_ - 1));
    cellY_ = static_cast<int>(std::clamp<std::int64_t>(iy, 0, height_ - 1));
    const int farX = static_cast<int>(std::clamp<std::int64_t>(ix + 1, 0, width_ - 1));
    const int farY = static_cast<int>(std::clamp<std::int64_t>(iy + 1, 0, height_ - 1));
    const float fx = x_ - static_cast<float>(ix), fy = y_ - static_cast<float>(iy);
    return {{Index(cellX_, cellY_), Index(farX, cellY_), Index(cellX_, farY), Index(farX, farY)},
            {(1 - fx) * (1 - fy), fx * (1 - fy), fy * (1 - fx), fy * fx}};
  }

  /// Lays down behind the drop a share of what it carries; the last fall's height caps it.
  [[gnu::always_inline]] void LayDown(int remaining) {
    const float share = std::min(1.0f, (1 / static_cast<float>(remaining)) * evenShare_);
    const float laid = share * carried_;
    if (laid > 0 && fall_ > 0) {
      carried_ -= laid;
      const double rise = std::min<double>(fall_, static_cast<double>(laid) * settings_.deposition);
      surface_ = static_cast<float>(rise + static_cast<double>(surface_));
      Blend();
    }
  }
  [[gnu::always_inline]] void PickUp() {
    if (fall_ > 0) {
      const float taken = std::min(0.5f, settings_.erosionPower * life_) * fall_;
      carried_ += taken;
      surface_ -= taken;
      Blend();
      fall_ -= taken;
    }
  }
  /// Brings the corners behind the drop to its surface height, each by its weight.
  [[gnu::always_inline]] void Blend() {
    for (int k = 0; k < 4; ++k) {
      float* const height = heights_ + corners_.at[k];
      const float weight = corners_.weight[k];
      Access::Store(height, (1 - weight) * Access::Load(height) + surface_ * weight);
    }
  }
  [[gnu::always_inline]] float Interpolated(const Corners& c) const {
    return c.weight[0] * Access::Load(heights_ + c.at[0]) + c.weight[1] * Access::Load(heights_ + c.at[1]) +
           c.weight[2] * Access::Load(heights_ + c.at[2]) + c.weight[3] * Access::Load(heights_ + c.at[3]);
  }

  float* const heights_;
  const int width_, height_;
  const DropSettings settings_;
  const float wide_, high_;
  const float evenShare_;  ///< of what is carried, times the steps left, goes down at a step
  const SlopeFilter filter_;

  float x_ = 0, y_ = 0;
  int cellX_ = 0, cellY_ = 0;
  Corners corners_{};               ///< of the position that the next step leaves
  float surface_ = 0;               ///< the ground's height at the drop
  float carried_ = 0;               ///< material
  float fall_ = 0;                  ///< height of the last step's fall, less what it took away
  float life_ = 1;                  ///< erosion weakens with it
  double ageing_ = 0;               ///< of life a step
  double slopeX_ = 0, slopeY_ = 0;  ///< uphill, with the noise of the last step in them
  bool isStopped_ = false;
};

template <BorderFlow kBorder, bool kNearest, typename Access>
bool WalkAll(const DropField& field, trMersenneTwister& generator, std::int64_t drops, DropWatch& watch) {
  constexpr int kStepsBetweenChecks = 50;
  DropNumbers numbers(generator);
  int sinceCheck = kStepsBetweenChecks;
  Walker<kBorder, kNearest, Access> walker(field);
  for (std::int64_t drop = 0; drop < drops; ++drop) {
    const double startX = numbers.Unit(), startY = numbers.Unit();
    const int steps = StepCount(numbers.Unit(), field.settings.flowDistance);
    // Drops without a step can be many.
    if (steps <= 0 && drop % 1024 == 0 && watch.MustStop()) return false;
    walker.Start(StartCell(startX, field.width), StartCell(startY, field.height), steps);
    for (int step = 0; step < steps && !walker.IsStopped(); ++step) {
      if (sinceCheck >= kStepsBetweenChecks) [[unlikely]] {
        sinceCheck = 0;
        watch.Report(drop, drops);
        if (watch.MustStop()) return false;
      }
      walker.TakeStep(step, steps - step, numbers.Four());
      ++sinceCheck;
    }
  }
  return true;
}

}  // namespace

double SlipLimit(bool slips, double degrees) {
  if (!slips) return HUGE_VAL;
  return std::fabs(degrees) < 90 ? static_cast<float>(std::tan(degrees * kDegreesToRadians)) : 100000.0f;
}

std::int64_t DropCount(int width, int height, double perPoint) {
  const auto points =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height));
  constexpr double kMost = 1e18;
  return static_cast<std::int64_t>(std::clamp(static_cast<double>(points) * perPoint, -kMost, kMost));
}

bool WalkDrops(const DropField& field, trMersenneTwister& generator, std::int64_t drops, DropWatch& watch) {
  return ForDropKind(field.settings, [&]<BorderFlow kBorder, bool kNearest>() {
    return WalkAll<kBorder, kNearest, Alone>(field, generator, drops, watch);
  });
}

bool WalkDropsAmongOthers(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
                          DropWatch& watch) {
  return ForDropKind(field.settings, [&]<BorderFlow kBorder, bool kNearest>() {
    return WalkAll<kBorder, kNearest, AmongOthers>(field, generator, drops, watch);
  });
}
