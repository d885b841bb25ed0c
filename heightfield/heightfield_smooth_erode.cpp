// heightfield_smooth_erode.
#include "heightfield/heightfield_smooth_erode.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <vector>

#include "heightfield/cone_kernel.h"
#include "heightfield/drop_numbers.h"
#include "heightfield/erosion_params.h"
#include "heightfield/slope_lanes.h"

namespace {

/// The generator's numbers, two a point in the order of the points, for rows that are asked for in any order.
/// Thread-safe.
class RowNumbers {
 public:
  explicit RowNumbers(int width) : perRow_(2 * width) {}

  /// Those of one row; each row once.
  std::vector<unsigned int> Take(long row) {
    const std::lock_guard lock(mutex_);
    for (; next_ <= row; ++next_) {
      std::vector<unsigned int>& numbers = waiting_[next_];
      numbers.resize(perRow_);
      generator_.Draw(numbers.data(), perRow_);
    }
    const auto found = waiting_.extract(row);
    return std::move(found.mapped());
  }

 private:
  const int perRow_;
  std::mutex mutex_;
  trMersenneTwister generator_{0};
  long next_ = 0;
  std::map<long, std::vector<unsigned int>> waiting_;
};

/// A row of heights with its end points repeated beyond the border.
template <typename Value>
class PaddedRow {
 public:
  PaddedRow(int width, int margin)
      : width_(width), margin_(margin), values_(static_cast<std::size_t>(width) + 2 * margin + kLanes) {}
  /// Takes value(x) for every point of the row.
  template <typename ValueAt>
  void Fill(const ValueAt& valueAt) {
    const auto first = values_.begin() + margin_;
    for (int x = 0; x < width_; ++x) first[x] = valueAt(x);
    std::fill(values_.begin(), first, first[0]);
    std::fill(first + width_, values_.end(), first[width_ - 1]);
  }
  /// Point 0; the margin lies before it, and behind the row there is room for whole lanes.
  const Value* Points() const { return values_.data() + margin_; }

  static constexpr int kLanes = 8;

 private:
  int width_, margin_;
  std::vector<Value> values_;
};

/// One row of the filter.
class SmoothErodeRow {
 public:
  SmoothErodeRow(const trHeightfield& input, const ConeKernel& kernel, long row)
      : kernel_(kernel),
        width_(input.width),
        centre_(input.HfScanlineRaw(static_cast<int>(row))),
        downX_(width_ + kLanes),
        downY_(width_ + kLanes) {
    for (int dy = -kernel.halfY; dy <= kernel.halfY; ++dy)
      rows_.push_back(input.HfScanlineRaw(static_cast<int>(std::clamp<long>(row + dy, 0, input.height - 1))));
  }

  /// `numbers` are two a point.
  void Run(const std::vector<unsigned int>& numbers, float* to) {
    // Up to here the sums are made value by value, as they are defined; beyond, where that takes long, pair
    // by pair: that comes to the same but for the rounding of the terms.
    constexpr long kMostSingle = 64;
    if (static_cast<long>(kernel_.halfX) * kernel_.halfY <= kMostSingle)
      SumSlopes();
    else
      SumSlopesOfPairs();
    for (int x = 0; x < width_; ++x) {
      const double slopeY = downY_[x] + (UnitDraw(numbers[2 * x]) - 0.5) * 0.0001;
      const double slopeX = downX_[x] + (UnitDraw(numbers[2 * x + 1]) - 0.5) * 0.0001;
      const double inverse = SafeReciprocal(std::sqrt(slopeX * slopeX + slopeY * slopeY));
      to[x] = LowestBlend(x, -slopeX * inverse, -slopeY * inverse);
    }
  }

 private:
  static constexpr int kLanes = PaddedRow<float>::kLanes;

  /// The row `dy` rows away; those beyond the border repeat it.
  const float* Heights(int dy) const { return rows_[static_cast<std::size_t>(dy + kernel_.halfY)]; }

  /// Slopes along each axis by itself; the middle row and column don't count.
  void SumSlopes() {
    PaddedRow<float> line(width_, kernel_.halfX);
    for (int dy = -kernel_.halfY; dy <= kernel_.halfY; ++dy) {
      if (dy == 0) continue;
      const float* const from = Heights(dy);
      line.Fill([from](int x) { return from[x]; });
      const float* const weights = kernel_.Row(dy) + kernel_.halfX;
      for (int dx = -kernel_.halfX; dx <= kernel_.halfX; ++dx) {
        const float weight = weights[dx], *const heights = line.Points() + dx;
        if (dx == 0 || weight == 0) continue;
        const auto byX = static_cast<float>(dx), byY = static_cast<float>(dy);
        for (int x = 0; x < width_; ++x) {
          const float difference = heights[x] - centre_[x];
          downX_[x] += static_cast<double>(difference / byX * weight);
          downY_[x] += static_cast<double>(difference / byY * weight);
        }
      }
    }
  }

  void SumSlopesOfPairs() {
    PaddedRow<double> sums(width_, kernel_.halfX), differences(width_, kernel_.halfX);
    std::vector<double> weights(kernel_.halfX + 1), weightsByColumn(kernel_.halfX + 1);
    for (int dy = 1; dy <= kernel_.halfY; ++dy) {
      const float* const row = kernel_.Row(dy) + kernel_.halfX;
      int reach = kernel_.halfX;
      while (reach > 0 && row[reach] == 0) --reach;
      for (int dx = 1; dx <= reach; ++dx) {
        weights[dx] = row[dx];
        weightsByColumn[dx] = weights[dx] / dx;
      }
      const float *const above = Heights(dy), *const below = Heights(-dy);
      sums.Fill([&](int x) { return static_cast<double>(above[x]) + below[x]; });
      differences.Fill([&](int x) { return static_cast<double>(above[x]) - below[x]; });
      AddMirroredSlopes({sums.Points(), differences.Points(), width_, static_cast<double>(dy)}, reach,
                        weights.data(), weightsByColumn.data(), downX_.data(), downY_.data());
    }
  }

  /// The lowest of a point's height and its blends with points on the downhill side, the nearer to the line
  /// of fall the stronger. Those two intervals or more off the line don't count, so that only a strip is
  /// looked at.
  float LowestBlend(int x, double downX, double downY) const {
    constexpr double kReach = 2 + 1e-6;
    const bool isUnit = std::fabs(downX * downX + downY * downY - 1) < 1e-9;
    const bool isAlongX = std::fabs(downX) > std::fabs(downY);
    const int longHalf = isAlongX ? kernel_.halfX : kernel_.halfY,
              shortHalf = isAlongX ? kernel_.halfY : kernel_.halfX;
    const double along = isAlongX ? downX : downY, across = isAlongX ? downY : downX;
    const double tilt = across / along, reach = kReach / std::fabs(along);
    float lowest = centre_[x];
    // The nearest ones count most: with them first, most others can be told by their weight alone.
    const int towards = along < 0 ? -1 : 1;
    for (int step = isUnit ? std::max(-longHalf, -4) : -longHalf; step <= longHalf; ++step) {
      const int i = towards * step;
      // The strip begins where its edge of half its width does.
      int first = -shortHalf, last = shortHalf;
      if (isUnit) {
        if (i * along < -kReach) continue;
        first = std::max(first, static_cast<int>(std::ceil(i * tilt - reach)));
        last = std::min(last, static_cast<int>(std::floor(i * tilt + reach)));
      }
      for (int j = first; j <= last; ++j) {
        const int dx = isAlongX ? i : j, dy = isAlongX ? j : i;
        const float height = Heights(dy)[std::clamp(x + dx, 0, width_ - 1)];
        if (IsAbove(lowest, centre_[x], height, kernel_.Row(dy)[dx + kernel_.halfX])) continue;
        lowest = std::min(lowest, Blend(x, dx, dy, downX, downY));
      }
    }
    return lowest;
  }

  /// Whether no blend of a height with at most `weight` is below `lowest`, rounding of the blend included.
  static bool IsAbove(float lowest, float centre, float height, float weight) {
    constexpr float kRounding = 1e-6f;
    const float magnitude = std::max(std::fabs(centre), std::fabs(height));
    return centre - weight * std::max(0.0f, centre - height) - kRounding * magnitude >= lowest;
  }

  /// A point's height where the other one doesn't count.
  float Blend(int x, int dx, int dy, double downX, double downY) const {
    const float centre = centre_[x], height = Heights(dy)[std::clamp(x + dx, 0, width_ - 1)];
    const double along = dy * downY + dx * downX;
    const double offY = dy - along * downY, offX = dx - along * downX;
    const double off = std::sqrt(offY * offY + offX * offX);
    const auto share = static_cast<float>(std::min(1.0, 1.0 - off * 0.5));
    const float blend = kernel_.Row(dy)[dx + kernel_.halfX] * share;
    return along >= 0 && blend > 0 ? blend * height + (1 - blend) * centre : centre;
  }

  const ConeKernel& kernel_;
  const int width_;
  const float* const centre_;
  std::vector<const float*> rows_;     ///< from the southernmost that the kernel reaches
  std::vector<double> downX_, downY_;  ///< sums of slopes
};

}  // namespace

HeightfieldSmoothErode::HeightfieldSmoothErode() {
  KeepWhatAFailureLeaves();
  Param(smooth_, "smooth", 1).About("Kept for older projects; without effect.");
  SetRange(radiusHint_, this, {.min = 0.0, .max = 1000.0});
  Param(radius_, "smooth_radius", 10.0, &radiusHint_)
      .About("How far downhill ground is worn towards lower points, metres.");
}

long HeightfieldSmoothErode::Compute(trHeightfield* input) {
  const trHeightfield* from;
  if (!CopyInput(*this, from)) return 0;
  if (!from) return 1;

  const auto rx = static_cast<float>(GuardedDivide(radius_, input->HfXScale()));
  const auto ry = static_cast<float>(GuardedDivide(radius_, input->HfYScale()));
  if (!ConeKernel::IsSensible(rx, ry)) {
    trError("smooth_radius reaches over too many points.");
    return 0;
  }
  const ConeKernel kernel(rx, ry, false);
  RowNumbers numbers(width);
  const trString text = "HeightfieldSmoothErode: Eroding";
  const auto erode = [&](long row) {
    SmoothErodeRow(*input, kernel, row).Run(numbers.Take(row), HfScanlineRaw(static_cast<int>(row)));
  };
  if (!MakeRows(*this, text, erode)) return 0;
  unsigned long token = 0;
  ReportProgress(token, text, 1.0f, -1.0f);
  return 1;
}
