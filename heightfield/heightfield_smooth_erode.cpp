// heightfield_smooth_erode.
#include "heightfield/heightfield_smooth_erode.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <vector>

#include "heightfield/cone_kernel.h"
#include "heightfield/drop_numbers.h"
#include "heightfield/erosion_params.h"

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

/// One row of the filter.
class SmoothErodeRow {
 public:
  SmoothErodeRow(const trHeightfield& input, const ConeKernel& kernel, long row)
      : input_(input),
        kernel_(kernel),
        row_(row),
        width_(input.width),
        centre_(input.HfScanlineRaw(static_cast<int>(row))),
        line_(static_cast<std::size_t>(width_) + 2 * kernel.halfX),
        downX_(width_),
        downY_(width_) {}

  /// `numbers` are two a point.
  void Run(const std::vector<unsigned int>& numbers, float* to) {
    SumSlopes();
    for (int x = 0; x < width_; ++x) {
      const double slopeY = downY_[x] + (UnitDraw(numbers[2 * x]) - 0.5) * 0.0001;
      const double slopeX = downX_[x] + (UnitDraw(numbers[2 * x + 1]) - 0.5) * 0.0001;
      const double inverse = SafeReciprocal(std::sqrt(slopeX * slopeX + slopeY * slopeY));
      downX_[x] = -slopeX * inverse;
      downY_[x] = -slopeY * inverse;
    }
    std::copy_n(centre_, width_, to);
    LowerToBlends(to);
  }

 private:
  /// Calls work(dx, dy, weight, heights) for the kernel's weights that aren't 0, row by row; heights[x] is
  /// the one that lies (dx, dy) away from point x. Rows and columns beyond the border repeat it.
  template <typename Work>
  void ForEachWeight(const Work& work) {
    for (int dy = -kernel_.halfY; dy <= kernel_.halfY; ++dy) {
      const long y = std::clamp<long>(row_ + dy, 0, input_.height - 1);
      const float* const from = input_.HfScanlineRaw(static_cast<int>(y));
      const auto first = line_.begin() + kernel_.halfX;
      std::fill(line_.begin(), first, from[0]);
      std::copy_n(from, width_, first);
      std::fill(first + width_, line_.end(), from[width_ - 1]);
      const float* const weights = kernel_.Row(dy) + kernel_.halfX;
      for (int dx = -kernel_.halfX; dx <= kernel_.halfX; ++dx)
        if (weights[dx] != 0) work(dx, dy, weights[dx], line_.data() + kernel_.halfX + dx);
    }
  }

  /// Slopes along each axis by itself; the middle row and column don't count.
  void SumSlopes() {
    ForEachWeight([&](int dx, int dy, float weight, const float* heights) {
      if (dx == 0 || dy == 0) return;
      const auto byX = static_cast<float>(dx), byY = static_cast<float>(dy);
      for (int x = 0; x < width_; ++x) {
        const float difference = heights[x] - centre_[x];
        downX_[x] += static_cast<double>(difference / byX * weight);
        downY_[x] += static_cast<double>(difference / byY * weight);
      }
    });
  }

  /// Blends with the points on the downhill side, the nearer to the line of fall the stronger.
  void LowerToBlends(float* lowest) {
    ForEachWeight([&](int dx, int dy, float weight, const float* heights) {
      for (int x = 0; x < width_; ++x) {
        const double along = dy * downY_[x] + dx * downX_[x];
        if (!(along >= 0)) continue;
        const double offY = dy - along * downY_[x], offX = dx - along * downX_[x];
        const double off = std::sqrt(offY * offY + offX * offX);
        const auto share = static_cast<float>(std::min(1.0, 1.0 - off * 0.5));
        if (!(share > 0)) continue;
        const float blend = weight * share;
        lowest[x] = std::min(lowest[x], blend * heights[x] + (1 - blend) * centre_[x]);
      }
    });
  }

  const trHeightfield& input_;
  const ConeKernel& kernel_;
  const long row_;
  const int width_;
  const float* const centre_;
  std::vector<float> line_;
  std::vector<double> downX_, downY_;  ///< sums of slopes at first
};

}  // namespace

HeightfieldSmoothErode::HeightfieldSmoothErode() {
  KeepWhatAFailureLeaves();
  Param(smooth_, "smooth", 1);
  SetRange(radiusHint_, this, {.min = 0.0, .max = 1000.0});
  Param(radius_, "smooth_radius", 10.0, &radiusHint_);
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
