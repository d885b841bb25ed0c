// The walks of drops on whole grid points.
#include "heightfield/whole_cell_drops.h"

#include <chrono>

#include "heightfield/drop_math.h"
#include "heightfield/drop_numbers.h"

namespace {

/// What the two kinds of drops share: the slope, the direction, the way over the border.
class WholeCellDrop {
 public:
  WholeCellDrop(const DropField& field, const SlopeFilter& filter, int x, int y)
      : field_(field),
        filter_(filter),
        x_(static_cast<float>(x)),
        y_(static_cast<float>(y)),
        cellX_(x),
        cellY_(y) {}

  float* Ground() const { return At(cellX_, cellY_); }

  void TakeSlope() {
    const float centre = *Ground();
    slopeX_ = slopeY_ = 0;
#pragma GCC unroll 12
    for (const auto [dx, dy] : SlopeFilter::kTaps) {
      const float height =
          *At(std::clamp(cellX_ + dx, 0, field_.width - 1), std::clamp(cellY_ + dy, 0, field_.height - 1));
      const double t = filter_.Weighted(height - centre, dx, dy);
      slopeX_ += dx * t;
      slopeY_ += dy * t;
    }
  }

  /// The direction of a step from four numbers, as a unit vector; `age` multiplies the diffusion.
  void Direct(const double* numbers, double age, double& alongX, double& alongY) {
    const DropSettings& s = field_.settings;
    slopeY_ += numbers[0] * 0.001;
    slopeX_ += numbers[1] * 0.001;
    const double slope = std::sqrt(slopeY_ * slopeY_ + slopeX_ * slopeX_);
    const double a = numbers[2], b = numbers[3];
    alongX = b;
    alongY = a;
    if (!(slope > s.slipLimit)) {
      const double wander = s.diffusionAdapts ? s.diffusion * slope : s.diffusion;
      const double inverse = SafeReciprocal(slope);
      alongX = -slopeX_ * inverse + b * age * wander;
      alongY = -slopeY_ * inverse + a * age * wander;
    }
    const double inverse = SafeReciprocal(std::sqrt(alongX * alongX + alongY * alongY));
    alongX *= inverse;
    alongY *= inverse;
  }

  /// Moves there and round the raster, onto the nearest point. True when it went over the last row.
  bool MoveTo(float x, float y) {
    const int width = field_.width, height = field_.height;
    x_ = x;
    y_ = y;
    std::int64_t ix = FlooredInt(static_cast<double>(x) + 0.5);
    std::int64_t iy = FlooredInt(static_cast<double>(y) + 0.5);
    if (ix < 0) x_ += static_cast<float>(width), ix += width;
    if (iy < 0) y_ += static_cast<float>(height), iy += height;
    if (ix > width - 1) x_ -= static_cast<float>(width), ix -= width;
    const bool isOverTheTop = iy > height - 1;
    if (isOverTheTop) y_ -= static_cast<float>(height), iy -= height;
    cellX_ = static_cast<int>(std::clamp<std::int64_t>(ix, 0, width - 1));
    cellY_ = static_cast<int>(std::clamp<std::int64_t>(iy, 0, height - 1));
    return isOverTheTop;
  }

  float X() const { return x_; }
  float Y() const { return y_; }

 private:
  float* At(int x, int y) const { return field_.heights + std::int64_t{y} * field_.width + x; }

  const DropField& field_;
  const SlopeFilter& filter_;
  float x_, y_;
  int cellX_, cellY_;
  double slopeX_ = 0, slopeY_ = 0;
};

/// Reports of a walk, at the drops that are told and, where those lie far apart, twice a second.
class Pace {
 public:
  Pace(std::int64_t drops, const DropReport& report)
      : drops_(drops), interval_(std::max<std::int64_t>(1, drops / 100)), report_(report) {}

  /// Before a drop; false stops the walk.
  bool Next(std::int64_t drop) {
    drop_ = drop;
    return drop % interval_ == 0 ? Report() : Step();
  }
  /// After a step.
  bool Step() {
    constexpr unsigned kStepsBetweenLooks = 4096;
    if (++steps_ % kStepsBetweenLooks != 0) return true;
    return std::chrono::steady_clock::now() - last_ < std::chrono::milliseconds(500) || Report();
  }

 private:
  bool Report() {
    last_ = std::chrono::steady_clock::now();
    return report_(static_cast<float>(drop_) / static_cast<float>(drops_));
  }

  const std::int64_t drops_, interval_;
  const DropReport& report_;
  std::int64_t drop_ = 0;
  unsigned steps_ = 0;
  std::chrono::steady_clock::time_point last_;
};

/// One drop of the second version. False when it was stopped.
bool WalkOne(const DropField& field, float rate, WholeCellDrop drop, int steps, DropNumbers& numbers,
             Pace& pace) {
  const DropSettings& s = field.settings;
  float* behind = drop.Ground();
  float carried = 0, fall = 0, life = 1;
  for (int step = 0; step < steps; ++step) {
    if (step % 2 == 0) drop.TakeSlope();
    double alongX, alongY;
    drop.Direct(numbers.Four(), 1, alongX, alongY);
    drop.MoveTo(drop.X() + static_cast<float>(alongX), drop.Y() + static_cast<float>(alongY));
    float* const ground = drop.Ground();

    // Between an even share and all of it stays behind; the steeper the last fall, the less.
    const float even = carried / static_cast<float>(steps - step);
    const float part = std::clamp(rate / (fall - rate), 0.0f, 1.0f);
    const float laid = even + (carried - even) * part;
    if (laid > 0 && fall > 0) {
      carried -= laid;
      *behind = static_cast<float>(static_cast<double>(*behind) +
                                   std::min<double>(fall, static_cast<double>(laid) * s.deposition));
    }
    fall = *behind - *ground;
    if (fall > 0) {
      const float taken = std::min(0.5f, s.erosionPower * life) * fall;
      carried += taken;
      *behind -= taken;
      fall -= taken;
    }
    behind = ground;
    life -= 1.0f / static_cast<float>(steps);
    if (!pace.Step()) return false;
  }
  return true;
}

/// One drop of the experiment. False when it was stopped.
bool WalkOneExperimental(const DropField& field, double erosionPower, WholeCellDrop drop, int steps,
                         DropNumbers& numbers, Pace& pace) {
  float* behind = drop.Ground();
  float carried = 0, life = 1;
  for (int step = 0; step < steps; ++step) {
    if (step % 2 == 0) drop.TakeSlope();
    double alongX, alongY;
    drop.Direct(numbers.Four(), step, alongX, alongY);
    const bool isOverTheTop = drop.MoveTo(static_cast<float>(static_cast<double>(drop.X()) + alongX),
                                          static_cast<float>(static_cast<double>(drop.Y()) + alongY));
    if (!isOverTheTop) {
      float* const ground = drop.Ground();
      const float laid = carried / static_cast<float>(steps - step);
      if (laid > 0) {
        carried -= laid;
        *behind = static_cast<float>(static_cast<double>(*behind) +
                                     static_cast<double>(laid) * field.settings.deposition);
      }
      const float fall = *behind - *ground;
      if (fall > 0) {
        const auto taken = static_cast<float>(static_cast<double>(fall) * erosionPower * life);
        carried += taken;
        *behind -= taken;
      }
      behind = ground;
    }
    life = static_cast<float>(static_cast<double>(life) - 1.0 / steps);
    if (!pace.Step()) return false;
  }
  return true;
}

template <typename Walk>
bool WalkAll(const DropField& field, trMersenneTwister& generator, std::int64_t drops,
             const DropReport& report, const Walk& walk) {
  const SlopeFilter filter;
  DropNumbers numbers(generator);
  Pace pace(drops, report);
  for (std::int64_t index = 0; index < drops; ++index) {
    if (!pace.Next(index)) return false;
    const int x = StartCell(numbers.Unit(), field.width);
    const int y = StartCell(numbers.Unit(), field.height);
    const int steps = StepCount(numbers.Unit(), field.settings.flowDistance);
    if (!walk(WholeCellDrop(field, filter, x, y), steps, numbers, pace)) return false;
  }
  report(1);
  return true;
}

}  // namespace

bool WalkWholeCellDrops(const DropField& field, double depositionRate, trMersenneTwister& generator,
                        std::int64_t drops, const DropReport& report) {
  const auto rate = static_cast<float>(depositionRate / field.settings.flowDistance);
  return WalkAll(field, generator, drops, report,
                 [&](const WholeCellDrop& drop, int steps, DropNumbers& numbers, Pace& pace) {
                   return WalkOne(field, rate, drop, steps, numbers, pace);
                 });
}

bool WalkExperimentalDrops(const DropField& field, double erosionPower, trMersenneTwister& generator,
                           std::int64_t drops, const DropReport& report) {
  return WalkAll(field, generator, drops, report,
                 [&](const WholeCellDrop& drop, int steps, DropNumbers& numbers, Pace& pace) {
                   return WalkOneExperimental(field, erosionPower, drop, steps, numbers, pace);
                 });
}
