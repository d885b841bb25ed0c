// Four drops side by side: the walk of drop_walk.cpp with a drop in each lane of the vectors.
//
// A drop's step is one long chain of square roots, divisions and loads, each waiting for the one before. Four
// chains in the lanes of one take as long as one alone. Each lane has the same bits as the drop walked alone
// has, as long as lanes don't meet on the same ground.
#pragma once

#include "heightfield/four_lanes.h"

#ifdef OV_FOUR_LANES

#include <bit>
#include <cstdint>
#include <cstring>

#include "heightfield/drop_access.h"
#include "heightfield/drop_math.h"

/// What is known of a drop between two steps, for each lane.
struct DropLaneState {
  Double4 slopeX{}, slopeY{};  ///< uphill, with the noise of the last step in them
  Double4 ageing{};            ///< of life a step
  Float4 x{}, y{};
  Float4 surface{};  ///< the ground's height at the drop
  Float4 carried{}, fall{}, life{};
  Float4 weight[4]{};  ///< of the corners around the drop, in the order of drop_walk.cpp
  Float4 ground[4]{};  ///< their heights
  Int4 cellX{}, cellY{}, step{}, steps{};
  Int4 isActive{};
  Int4 isPinched{};  ///< the border makes some corners the same
  float* corner[kDropLanes]{};
  std::ptrdiff_t farX[kDropLanes]{}, farY[kDropLanes]{};  ///< of pinched drops, to their other corners

  /// Copies lane `from` of `other` to lane `to`.
  void CopyLane(int to, const DropLaneState& other, int from) {
    slopeX[to] = other.slopeX[from];
    slopeY[to] = other.slopeY[from];
    ageing[to] = other.ageing[from];
    x[to] = other.x[from];
    y[to] = other.y[from];
    surface[to] = other.surface[from];
    carried[to] = other.carried[from];
    fall[to] = other.fall[from];
    life[to] = other.life[from];
    for (int k = 0; k < 4; ++k) {
      weight[k][to] = other.weight[k][from];
      ground[k][to] = other.ground[k][from];
    }
    cellX[to] = other.cellX[from];
    cellY[to] = other.cellY[from];
    step[to] = other.step[from];
    steps[to] = other.steps[from];
    isActive[to] = other.isActive[from];
    isPinched[to] = other.isPinched[from];
    corner[to] = other.corner[from];
    farX[to] = other.farX[from];
    farY[to] = other.farY[from];
  }
};

/// Four drops on a raster. Per-thread state. Needs AVX2 and a raster within kMostPoints on each axis.
template <BorderFlow kBorder, bool kNearest, typename Access>
class DropLanes : public DropLaneState {
 public:
  static constexpr int kMostPoints = 1 << 22;

  explicit DropLanes(const DropField& field)
      : heights_(field.heights),
        width_(field.width),
        height_(field.height),
        settings_(field.settings),
        evenShare_(std::max(0.0f, field.settings.depositionRate) + 1) {}

  /// A new drop for a lane.
  void Start(int lane, int startX, int startY, int stepCount) {
    float* const start = heights_ + std::int64_t{startY} * width_ + startX;
    const float height = Access::Load(start);
    slopeX[lane] = slopeY[lane] = 0;
    ageing[lane] = 1.0 / stepCount;
    x[lane] = static_cast<float>(startX);
    y[lane] = static_cast<float>(startY);
    surface[lane] = height;
    carried[lane] = fall[lane] = 0;
    life[lane] = 1;
    for (int k = 0; k < 4; ++k) {
      weight[k][lane] = k == 0;
      ground[k][lane] = height;
    }
    cellX[lane] = startX;
    cellY[lane] = startY;
    step[lane] = 0;
    steps[lane] = stepCount;
    isActive[lane] = isPinched[lane] = -1;
    corner[lane] = start;
    farX[lane] = farY[lane] = 0;
  }

  OV_LANES_INLINE int ActiveLanes() const { return LanesOf(isActive); }

  /// Before every other step, counted from the start, while any lane is active.
  OV_LANES_INLINE void TakeSlopes() {
    if constexpr (kNearest) {
      cellX = ClampedTo(Truncated(x + 0.5f), All(width_ - 1));
      cellY = ClampedTo(Truncated(y + 0.5f), All(height_ - 1));
    }
    IdleLanesFollow();
    const Int4 isOutside = (cellX < 2) | (cellY < 2) | (cellX > All(width_ - 3)) | (cellY > All(height_ - 3));
    if (LanesOf(isOutside) != 0) [[unlikely]] {
      for (int l = 0; l < kDropLanes; ++l) TakeSlopeAtBorder(l);
      return;
    }
    float* centre[kDropLanes];
    Cells(centre);
    const Float4 height = At(centre, 0);
    Double4 sumX{}, sumY{};
#pragma GCC unroll 12
    for (const auto [dx, dy] : SlopeFilter::kTaps) {
      const Float4 there = At(centre, dy * static_cast<std::ptrdiff_t>(width_) + dx);
      const Double4 t = Widened(there - height) * filter_.Scale(dx, dy);
      // Taps lie one or two intervals away, so that the products with the weight are exact.
      sumX += t * (filter_.Weight(dx, dy) * dx);
      sumY += t * (filter_.Weight(dx, dy) * dy);
    }
    slopeX = sumX;
    slopeY = sumY;
    FetchAhead(centre);
  }

  /// With four draws for each lane, less a half each.
  OV_LANES_INLINE void TakeStep(Double4 noiseY, Double4 noiseX, Double4 a, Double4 b) {
    if (ActiveLanes() == 0) return;  // there would be no ground to read for idle lanes
    slopeY += noiseY * 0.001;
    slopeX += noiseX * 0.001;
    Move(a, b);

    const Int4 remaining = steps - step;
    Int4 ix = Floored(x), iy = Floored(y);
    const Int4 isStopped = CrossBorder(ix, iy, remaining);
    cellX = ClampedTo(ix, All(width_ - 1));
    cellY = ClampedTo(iy, All(height_ - 1));
    const Float4 fx = x - ToFloat(ix), fy = y - ToFloat(iy), ex = 1.0f - fx, ey = 1.0f - fy;
    const Float4 next[4] = {ex * ey, fx * ey, fy * ex, fy * fx};
    const Int4 beyondX = ClampedTo(ix + 1, All(width_ - 1)) - cellX;
    const Int4 beyondY = ClampedTo(iy + 1, All(height_ - 1)) - cellY;

    // Lay down behind the drop a share of what it carries; the last fall's height caps it.
    const Float4 share = Least((1.0f / ToFloat(remaining)) * evenShare_, All(1.0f));
    const Float4 laid = share * carried;
    const Int4 lays = (laid > 0.0f) & (fall > 0.0f) & isActive;
    carried -= Where(lays, laid);
    const Double4 rise = Least(Widened(laid) * settings_.deposition, Widened(fall));
    surface = lays ? Narrowed(rise + Widened(surface)) : surface;

    const Int4 willBePinched = (beyondX == 0) | (beyondY == 0);
    if (LanesOf((willBePinched | isPinched) & isActive) == 0) [[likely]] {
      IdleLanesFollow();
      StepOnGround(next, lays);
    } else {
      for (int l = 0; l < kDropLanes; ++l)
        if (isActive[l]) StepAtBorder(l, next, lays[l], beyondX[l], beyondY[l] * std::ptrdiff_t{width_});
      isPinched = willBePinched;
    }
    for (int k = 0; k < 4; ++k) weight[k] = next[k];
    life = Narrowed(Widened(life) - ageing);
    step -= isActive;
    isActive &= (step < steps) & ~isStopped;
  }

 private:
  /// Asks for the rows that drops come to within the next steps: on a large raster each is another page, and
  /// the processor doesn't guess them.
  OV_LANES_INLINE void FetchAhead(float* const (&centre)[kDropLanes]) const {
    const int goesNorth = LanesOf(slopeY < 0.0);
    for (int l = 0; l < kDropLanes; ++l) {
      const std::ptrdiff_t row = goesNorth >> l & 1 ? width_ : -width_;
      __builtin_prefetch(centre[l] + 4 * row);
      __builtin_prefetch(centre[l] + 5 * row);
    }
  }
  /// Idle lanes, of four at most three, go where an active one is, so that what they read is ground of this
  /// thread's.
  OV_LANES_INLINE void IdleLanesFollow() {
    const int active = ActiveLanes();
    if (active == kAllLanes) [[likely]]
      return;
    const int leader = std::countr_zero(static_cast<unsigned>(active));
    cellX = isActive ? cellX : All(static_cast<int>(cellX[leader]));
    cellY = isActive ? cellY : All(static_cast<int>(cellY[leader]));
  }
  OV_LANES_INLINE void Cells(float* (&cells)[kDropLanes]) const {
    for (int l = 0; l < kDropLanes; ++l) cells[l] = heights_ + (std::int64_t{cellY[l]} * width_ + cellX[l]);
  }
  OV_LANES_INLINE static Float4 At(float* const (&p)[kDropLanes], std::ptrdiff_t offset) {
    return Float4{Access::Load(p[0] + offset), Access::Load(p[1] + offset), Access::Load(p[2] + offset),
                  Access::Load(p[3] + offset)};
  }

  void TakeSlopeAtBorder(int l) {
    const auto at = [&](int dx, int dy) {
      return Access::Load(heights_ + std::int64_t{std::clamp(cellY[l] + dy, 0, height_ - 1)} * width_ +
                          std::clamp(cellX[l] + dx, 0, width_ - 1));
    };
    const float height = at(0, 0);
    double sumX = 0, sumY = 0;
#pragma GCC unroll 12
    for (const auto [dx, dy] : SlopeFilter::kTaps) {
      const double t = filter_.Weighted(at(dx, dy) - height, dx, dy);
      sumX += dx * t;
      sumY += dy * t;
    }
    slopeX[l] = sumX;
    slopeY[l] = sumY;
  }

  /// One grid interval downhill, blurred by two numbers; or anywhere, where it slips.
  OV_LANES_INLINE void Move(Double4 a, Double4 b) {
    const Double4 slope = SquareRoot(slopeY * slopeY + slopeX * slopeX);
    const Double4 inverseSlope = SafeReciprocals(slope);
    const Double4 wander = settings_.diffusionAdapts ? settings_.diffusion * slope : All(settings_.diffusion);
    const Long4 slips = slope > settings_.slipLimit;
    const Double4 alongX = slips ? b : -slopeX * inverseSlope + b * wander;
    const Double4 alongY = slips ? a : -slopeY * inverseSlope + a * wander;
    const Double4 inverse = SafeReciprocals(SquareRoot(alongX * alongX + alongY * alongY));
    x = Narrowed(Widened(x) + alongX * inverse);
    y = Narrowed(Widened(y) + alongY * inverse);
  }

  /// The border moves drops, or says which ones end.
  OV_LANES_INLINE Int4 CrossBorder(Int4& ix, Int4& iy, Int4 remaining) {
    const Int4 lastX = All(width_ - 1), lastY = All(height_ - 1);
    if constexpr (kBorder == BorderFlow::kAround) {
      const Int4 isOutside = (ix < 0) | (iy < 0) | (ix > lastX) | (iy > lastY);
      if (LanesOf(isOutside) != 0) [[unlikely]] {
        Wrap(ix < 0, x, ix, width_);
        Wrap(iy < 0, y, iy, height_);
        Wrap(ix > lastX, x, ix, -width_);
        Wrap(iy > lastY, y, iy, -height_);
      }
      return Int4{};
    } else if constexpr (kBorder == BorderFlow::kStop) {
      return (ix < -1) | (ix > lastX + 1) | (iy < -1) | (iy > lastY + 1);
    } else {
      const Int4 reach = ClampedTo(remaining, All(1 << 28));  // drops can't be farther away
      return (ix < -reach) | (ix > lastX + reach) | (iy < -reach) | (iy > lastY + reach);
    }
  }
  /// Moves a coordinate where the mask is set; adding zero elsewhere would turn -0 into 0.
  OV_LANES_INLINE static void Wrap(Int4 mask, Float4& position, Int4& cell, int by) {
    position = mask ? position + static_cast<float>(by) : position;
    cell += mask & by;
  }

  /// The rest of a step, away from the border: ground is laid down and taken behind the drops.
  OV_LANES_INLINE void StepOnGround(const Float4 (&next)[4], Int4 lays) {
    float* cells[kDropLanes];
    Cells(cells);
    Blend(lays);
    Float4 before[4];
    fall = surface - Interpolated(cells, next, before);
    const Int4 cuts = (fall > 0.0f) & isActive;
    const Float4 taken = Where(cuts, Least(settings_.erosionPower * life, All(0.5f)) * fall);
    carried += taken;
    surface -= taken;
    Blend(cuts);
    fall -= taken;
    surface = Interpolated(cells, next, ground);
    std::memcpy(corner, cells, sizeof corner);
  }
  /// The height at new places, and those of the corners around them.
  OV_LANES_INLINE Float4 Interpolated(float* const (&cells)[kDropLanes], const Float4 (&w)[4],
                                      Float4 (&heights)[4]) const {
    heights[0] = At(cells, 0);
    heights[1] = At(cells, 1);
    heights[2] = At(cells, width_);
    heights[3] = At(cells, width_ + std::ptrdiff_t{1});
    return w[0] * heights[0] + w[1] * heights[1] + w[2] * heights[2] + w[3] * heights[3];
  }
  /// Brings the corners behind the drops of a mask to their surface heights, each by its weight.
  OV_LANES_INLINE void Blend(Int4 mask) {
    Float4 heights[4];
    for (int k = 0; k < 4; ++k) {
      ground[k] = mask ? (1.0f - weight[k]) * ground[k] + surface * weight[k] : ground[k];
      heights[k] = ground[k];
    }
    Transpose(heights);
    const int lanes = LanesOf(mask);
    for (int l = 0; l < kDropLanes; ++l)
      if (lanes >> l & 1) {
        Access::StorePair(corner[l], heights[l], 0);
        Access::StorePair(corner[l] + width_, heights[l], 2);
      }
  }

  /// The same for one lane, whose corners may be the same points.
  void StepAtBorder(int l, const Float4 (&next)[4], bool lays, std::ptrdiff_t beyondX,
                    std::ptrdiff_t beyondY) {
    const std::ptrdiff_t oldX = isPinched[l] ? farX[l] : 1, oldY = isPinched[l] ? farY[l] : width_;
    float* const behind[4] = {corner[l], corner[l] + oldX, corner[l] + oldY, corner[l] + oldY + oldX};
    float* const cell = heights_ + (std::int64_t{cellY[l]} * width_ + cellX[l]);
    float* const ahead[4] = {cell, cell + beyondX, cell + beyondY, cell + beyondY + beyondX};
    const auto blend = [&] {
      for (int k = 0; k < 4; ++k)
        Access::Store(behind[k], (1 - weight[k][l]) * Access::Load(behind[k]) + surface[l] * weight[k][l]);
    };
    const auto interpolated = [&] {
      return next[0][l] * Access::Load(ahead[0]) + next[1][l] * Access::Load(ahead[1]) +
             next[2][l] * Access::Load(ahead[2]) + next[3][l] * Access::Load(ahead[3]);
    };
    if (lays) blend();
    fall[l] = surface[l] - interpolated();
    if (fall[l] > 0) {
      const float taken = std::min(0.5f, settings_.erosionPower * life[l]) * fall[l];
      carried[l] += taken;
      surface[l] -= taken;
      blend();
      fall[l] -= taken;
    }
    surface[l] = interpolated();
    for (int k = 0; k < 4; ++k) ground[k][l] = Access::Load(ahead[k]);
    corner[l] = cell;
    farX[l] = beyondX;
    farY[l] = beyondY;
  }

  float* const heights_;
  const int width_, height_;
  const DropSettings settings_;
  const float evenShare_;  ///< of what is carried, times the steps left, goes down at a step
  const SlopeFilter filter_;
};

#endif
