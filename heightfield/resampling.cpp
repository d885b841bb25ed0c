// Resampling in blocks of columns, separably: rows of the input are interpolated along x once, and rows of
// the result are mixed from four of them.
#include "heightfield/resampling.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "heightfield/four_lanes.h"
#include "heightfield/operator.h"

namespace {

constexpr int kTaps = 4;
/// Points worked on side by side.
constexpr int kLanes = 4;
/// A block of the result: so few columns that what is kept of them stays in the first cache, and so many rows
/// that those of the input which two blocks need count for little.
constexpr int kBlockColumns = 512, kBlockRows = 256;

/// One axis of the result, seen from the input's.
struct Axis {
  std::vector<int> firstTap;  ///< the first of four neighbouring points, before what edges do to them
  std::vector<double> weights[kTaps];
  std::vector<int> nearest;
  std::vector<int> isThird;  ///< -1 where the nearest point is the third tap, 0 where it is the second

  /// In whole lanes: what lies behind the last point repeats it.
  Axis(double step, int from, int to) {
    const auto count = static_cast<std::size_t>(to + kLanes - 1);
    firstTap.reserve(count);
    for (auto& ofTap : weights) ofTap.reserve(count);
    nearest.reserve(count);
    isThird.reserve(count);
    for (int i = 0; i < to + kLanes - 1; ++i) Add(std::min(i, to - 1) * step, from);
  }

 private:
  void Add(double position, int count) {
    const double clamped = std::clamp(position, 0.0, count - 1.0);
    const int cell = std::min(static_cast<int>(clamped), std::max(count - 2, 0));
    firstTap.push_back(cell - 1);
    const double t = clamped - cell, t2 = t * t, t3 = t2 * t;
    const double slope0 = t3 - 2 * t2 + t, slope1 = t3 - t2, value1 = 3 * t2 - 2 * t3;
    weights[0].push_back(-0.5 * slope0);
    weights[1].push_back(1 - value1 - 0.5 * slope1);
    weights[2].push_back(value1 + 0.5 * slope0);
    weights[3].push_back(0.5 * slope1);
    nearest.push_back(std::clamp(RoundedCount(position), 0, count - 1));
    isThird.push_back(nearest.back() > cell ? -1 : 0);
  }
};

/// What a block takes of the axis of columns, four of them at a time.
struct LaneTaps {
  double weights[kTaps][kLanes];
  int firstTap[kLanes];  ///< from the block's first one on
  int isThird[kLanes];
};

/// A row of the input at a block's columns.
struct BlockRow {
  alignas(32) double interpolated[kBlockColumns + kLanes];
  alignas(16) float nearest[kBlockColumns + kLanes];
};

/// How four rows make one of the result; the mix with nearest points and the change of unit are in the
/// weights.
struct RowMix {
  const BlockRow *rows[kTaps], *nearest;
  double weights[kTaps], nearestWeight;
};

void InterpolateAlongX(const float* points, const LaneTaps* columns, int count, BlockRow& to) {
  for (int x = 0; x < count; ++x) {
    const LaneTaps& lanes = columns[x / kLanes];
    const int l = x % kLanes;
    const float* const taps = points + lanes.firstTap[l];
    const auto part = [&](int k) { return lanes.weights[k][l] * taps[k]; };
    to.interpolated[x] = (part(0) + part(2)) + (part(1) + part(3));
    to.nearest[x] = lanes.isThird[l] ? taps[2] : taps[1];
  }
}

void MixRows(const RowMix& mix, float* to, int count) {
  for (int x = 0; x < count; ++x) {
    const auto part = [&](int k) { return mix.weights[k] * mix.rows[k]->interpolated[x]; };
    double sum = part(0) + part(1) + (part(2) + part(3));
    if (mix.nearestWeight != 0) sum += mix.nearestWeight * mix.nearest->nearest[x];
    to[x] = static_cast<float>(sum);
  }
}

#ifdef OV_FOUR_LANES

// The same, to the bit, for four points at a time; they may write as far as whole lanes reach.

template <typename Vector>
OV_LANES_INLINE inline Vector LanesAt(const auto* first) {
  Vector lanes;
  std::memcpy(&lanes, first, sizeof lanes);
  return lanes;
}

OV_LANES void InterpolateLanesAlongX(const float* points, const LaneTaps* columns, int count, BlockRow& to) {
  for (int x = 0; x < count; x += kLanes, ++columns) {
    Float4 taps[kTaps];
    for (int l = 0; l < kLanes; ++l) taps[l] = LanesAt<Float4>(points + columns->firstTap[l]);
    Transpose(taps);
    Double4 parts[kTaps];
    for (int k = 0; k < kTaps; ++k) parts[k] = LanesAt<Double4>(columns->weights[k]) * Widened(taps[k]);
    const Double4 sum = (parts[0] + parts[2]) + (parts[1] + parts[3]);
    const Float4 nearest = LanesAt<Int4>(columns->isThird) ? taps[2] : taps[1];
    std::memcpy(to.interpolated + x, &sum, sizeof sum);
    std::memcpy(to.nearest + x, &nearest, sizeof nearest);
  }
}

template <bool kWithNearest>
OV_LANES void MixRowLanes(const RowMix& mix, float* to, int count) {
  const double *const a = mix.rows[0]->interpolated, *const b = mix.rows[1]->interpolated,
                      *const c = mix.rows[2]->interpolated, *const d = mix.rows[3]->interpolated;
  const float* const nearest = mix.nearest->nearest;
  const Double4 wa = All(mix.weights[0]), wb = All(mix.weights[1]), wc = All(mix.weights[2]),
                wd = All(mix.weights[3]), wn = All(mix.nearestWeight);
  const auto heightsAt = [&](int x) OV_LANES_INLINE {
    Double4 sum = wa * LanesAt<Double4>(a + x) + wb * LanesAt<Double4>(b + x) +
                  (wc * LanesAt<Double4>(c + x) + wd * LanesAt<Double4>(d + x));
    if constexpr (kWithNearest) sum += wn * Widened(LanesAt<Float4>(nearest + x));
    return Narrowed(sum);
  };
  int x = 0;
  for (; x + kLanes <= count; x += kLanes) {
    const Float4 heights = heightsAt(x);
    std::memcpy(to + x, &heights, sizeof heights);
  }
  if (x == count) return;
  const Float4 heights = heightsAt(x);
  std::memcpy(to + x, &heights, static_cast<std::size_t>(count - x) * sizeof *to);
}

#endif

/// The kernels for this processor.
struct Kernels {
  void (*interpolateAlongX)(const float* points, const LaneTaps* columns, int count,
                            BlockRow& to) = InterpolateAlongX;
  void (*mixRows)(const RowMix& mix, float* to, int count) = MixRows;

  explicit Kernels(bool withNearest) {
#ifdef OV_FOUR_LANES
    if (!__builtin_cpu_supports("avx2")) return;
    interpolateAlongX = InterpolateLanesAlongX;
    mixRows = withNearest ? MixRowLanes<true> : MixRowLanes<false>;
#else
    static_cast<void>(withNearest);
#endif
  }
};

/// Makes the rows of a block one after the other.
class Block {
 public:
  Block(const trHeightfield& input, const Kernels& kernels, const Axis& columns, int begin, int end)
      : input_(input),
        kernels_(kernels),
        origin_(columns.firstTap[static_cast<std::size_t>(begin)]),
        count_(end - begin) {
    for (int x = 0; x < (count_ + kLanes - 1) / kLanes * kLanes; ++x) {
      const auto at = static_cast<std::size_t>(begin + x);
      LaneTaps& lanes = columns_[x / kLanes];
      const int l = x % kLanes;
      for (int k = 0; k < kTaps; ++k) lanes.weights[k][l] = columns.weights[k][at];
      lanes.firstTap[l] = columns.firstTap[at] - origin_;
      lanes.isThird[l] = columns.isThird[at];
      span_ = lanes.firstTap[l] + kTaps;
    }
    if (origin_ < 0 || origin_ + span_ > input_.width) padded_.resize(static_cast<std::size_t>(span_));
  }

  /// A row of the result from its four rows of the input.
  void Make(const Axis& rows, int y, double smooth, double unit, float* to) {
    const auto at = static_cast<std::size_t>(y);
    RowMix mix{};
    for (int k = 0; k < kTaps; ++k) {
      mix.rows[k] = &Row(rows.firstTap[at] + k);
      mix.weights[k] = rows.weights[k][at] * smooth * unit;
    }
    mix.nearest = &Row(rows.nearest[at]);
    mix.nearestWeight = (1 - smooth) * unit;
    kernels_.mixRows(mix, to, count_);
  }

 private:
  const BlockRow& Row(int y) {
    y = std::clamp(y, 0, input_.height - 1);
    BlockRow& row = rows_[y % kTaps];
    if (held_[y % kTaps] == y) return row;
    held_[y % kTaps] = y;
    kernels_.interpolateAlongX(Points(input_.HfScanlineRaw(y)), columns_, count_, row);
    return row;
  }
  /// The input's row from the block's first tap on, end points repeated.
  const float* Points(const float* row) {
    if (padded_.empty()) return row + origin_;
    for (int x = 0; x < span_; ++x)
      padded_[static_cast<std::size_t>(x)] = row[std::clamp(origin_ + x, 0, input_.width - 1)];
    return padded_.data();
  }

  const trHeightfield& input_;
  const Kernels& kernels_;
  const int origin_, count_;
  int span_ = 0;
  LaneTaps columns_[kBlockColumns / kLanes];
  std::vector<float> padded_;
  BlockRow rows_[kTaps];
  int held_[kTaps] = {-1, -1, -1, -1};
};

}  // namespace

void FillByResampling(trHeightfield& to, const trHeightfield& from, double stepX, double stepY) {
  const double d = std::sqrt(stepX * stepY);
  const double unit = d == 0 ? 1 : 1 / d;
  // 1 where the grid becomes at least twice as fine, 0 where it stays or becomes coarser.
  const double smooth = std::clamp(-std::log(d) / std::log(2.0), 0.0, 1.0);
  const Axis columns(stepX, from.width, to.width), rows(stepY, from.height, to.height);
  if (smooth == 0) {
    MakeRows(to, [&](long row) {
      const float* const line = from.HfScanlineRaw(rows.nearest[static_cast<std::size_t>(row)]);
      float* const heights = to.HfScanlineRaw(static_cast<int>(row));
      for (int x = 0; x < to.width; ++x)
        heights[x] = static_cast<float>(line[columns.nearest[static_cast<std::size_t>(x)]] * unit);
    });
    return;
  }

  const Kernels kernels(smooth < 1);
  const long across = (to.width + kBlockColumns - 1) / kBlockColumns,
             along = (to.height + kBlockRows - 1) / kBlockRows;
  std::vector<trHeightRange> ranges(static_cast<std::size_t>(across * along));
  ForEachRow(across * along, [&](long piece) {
    const int beginX = static_cast<int>(piece % across) * kBlockColumns,
              endX = std::min(beginX + kBlockColumns, to.width);
    const int beginY = static_cast<int>(piece / across) * kBlockRows,
              endY = std::min(beginY + kBlockRows, to.height);
    Block block(from, kernels, columns, beginX, endX);
    for (int y = beginY; y < endY; ++y) {
      float* const heights = to.HfScanlineRaw(y) + beginX;
      block.Make(rows, y, smooth, unit, heights);
      ranges[static_cast<std::size_t>(piece)].Take(heights, endX - beginX);
    }
  });
  trHeightRange whole;
  for (const trHeightRange& range : ranges) whole.Take(range);
  to.HfSetZRange(whole);
}
