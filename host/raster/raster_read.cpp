// Reads elevation files in pieces of rows, by several threads where the format allows it.
#include "host/raster/raster_read.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <vector>

#include "host/raster/workers.h"

namespace ovhost {
namespace {

/// Bytes of a piece: few enough to be still in the cache when they are converted.
constexpr std::int64_t kPieceBytes = 1 << 20;
/// The most that a thread reads ahead to take means of, unless a single row of them takes more.
constexpr std::int64_t kBufferBytes = 128 << 20;
/// What isn't a height on any planet is a marker, such as the greatest negative float.
constexpr float kGreatestHeight = 1e36f;
/// Values that are converted together: so many that they stay in the first cache from pass to pass.
constexpr std::int64_t kTogether = 2048;

std::int64_t RoundedUp(std::int64_t value, std::int64_t step) { return (value + step - 1) / step * step; }

/// What a row, or all that a worker read, holds.
struct Found {
  std::int64_t missing = 0;
  float lowest = INFINITY, highest = -INFINITY;  ///< what isn't a number doesn't count

  void Add(const Found& other) {
    missing += other.missing;
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
  }
};

/// The range of some values. Lanes lie side by side, so that they are compared at once.
void AddRange(const float* values, std::int64_t count, Found& found) {
  constexpr int kLanes = 16;
  float lowest[kLanes], highest[kLanes];
  std::fill_n(lowest, kLanes, found.lowest);
  std::fill_n(highest, kLanes, found.highest);
  const auto take = [&](float v, int k) {
    lowest[k] = v < lowest[k] ? v : lowest[k];
    highest[k] = v > highest[k] ? v : highest[k];
  };
  std::int64_t i = 0;
  for (; i + kLanes <= count; i += kLanes)
    for (int k = 0; k < kLanes; ++k) take(values[i + k], k);
  for (; i < count; ++i) take(values[i], 0);
  found.lowest = *std::min_element(lowest, lowest + kLanes);
  found.highest = *std::max_element(highest, highest + kLanes);
}

/// Marks stored values that are no heights as NaN. Returns how many there were.
int MarkMissing(const RasterPlan& plan, float* values, std::int64_t count) {
  const auto gap = [&](int i) {
    return plan.hasMissingValue[i] ? static_cast<float>(plan.missingValue[i]) : std::nanf("");
  };
  const float gap0 = gap(0), gap1 = gap(1);
  int missing = 0;
  for (std::int64_t i = 0; i < count; ++i) {
    const float v = values[i];
    const int isHeight = (std::fabs(v) <= kGreatestHeight) & (v != gap0) & (v != gap1);
    values[i] = isHeight ? v : std::numeric_limits<float>::quiet_NaN();
    missing += 1 - isHeight;
  }
  return missing;
}

/// Turns stored values into raster values, and those that are no heights into `fill`. Passes of few
/// operations are compiled for several values at once.
Found Convert(const RasterPlan& plan, float fill, float* values, std::int64_t count) {
  const double factor = plan.factor, addend = plan.addend;
  Found found;
  for (; count > 0; values += kTogether, count -= kTogether) {
    const std::int64_t n = std::min(kTogether, count);
    const int missing = MarkMissing(plan, values, n);
    if (factor != 1 || addend != 0)
      for (std::int64_t i = 0; i < n; ++i) values[i] = static_cast<float>(values[i] * factor + addend);
    if (missing > 0 && !std::isnan(fill))
      for (std::int64_t i = 0; i < n; ++i) values[i] = std::isnan(values[i]) ? fill : values[i];
    found.missing += missing;
    AddRange(values, n, found);
  }
  return found;
}

/// The same for values that floats don't hold before scale and offset are applied.
Found ConvertWide(const RasterPlan& plan, float fill, const double* stored, float* values,
                  std::int64_t count) {
  const double gap0 = plan.hasMissingValue[0] ? plan.missingValue[0] : std::nan("");
  const double gap1 = plan.hasMissingValue[1] ? plan.missingValue[1] : std::nan("");
  Found found;
  for (; count > 0; stored += kTogether, values += kTogether, count -= kTogether) {
    const std::int64_t n = std::min(kTogether, count);
    for (std::int64_t i = 0; i < n; ++i) {
      const double v = stored[i];
      const int isHeight = (std::fabs(v) <= kGreatestHeight) & (v != gap0) & (v != gap1);
      values[i] = isHeight ? static_cast<float>(v * plan.factor + plan.addend) : fill;
      found.missing += 1 - isHeight;
    }
    AddRange(values, n, found);
  }
  return found;
}

/// One worker's way through a file.
class PieceReader {
 public:
  PieceReader(const RasterPlan& plan, RasterJob& job) : plan_(plan), job_(job) {}

  /// Rows `begin` to `end` of the result, counted in the file's order.
  bool Read(std::int64_t begin, std::int64_t end, std::string& problem) {
    if (!EnsureSource(problem)) return false;
    if (plan_.shrink > 1) return ReadMeans(begin, end, problem);
    const std::ptrdiff_t stride = plan_.northFirst ? -plan_.width : plan_.width;
    if (!ReadRows({plan_.fileX, plan_.fileY + begin, plan_.width, end - begin}, plan_.fill, Row(begin),
                  stride, found_, problem))
      return false;
    if (!plan_.westFirst)
      for (std::int64_t q = begin; q < end; ++q) std::reverse(Row(q), Row(q) + plan_.width);
    return true;
  }
  const Found& WhatWasFound() const { return found_; }
  void UseSource(RasterSource* source) { source_ = source; }

 private:
  bool EnsureSource(std::string& problem) {
    if (source_) return true;
    own_ = OpenRaster(job_.path, job_.band, problem);
    source_ = own_.get();
    return source_ != nullptr;
  }

  float* Row(std::int64_t q) const {
    return job_.out + (plan_.northFirst ? plan_.height - 1 - q : q) * plan_.width;
  }

  /// Reads a part and turns what is stored into raster values.
  bool ReadRows(const RasterRows& part, float fill, float* out, std::ptrdiff_t stride, Found& found,
                std::string& problem) {
    if (source_->Info().isWide) return ReadWideRows(part, fill, out, stride, found, problem);
    if (!source_->Read(part, out, stride, problem)) return false;
    for (std::int64_t j = 0; j < part.rows; ++j)
      found.Add(Convert(plan_, fill, out + j * stride, part.width));
    return true;
  }

  bool ReadWideRows(RasterRows part, float fill, float* out, std::ptrdiff_t stride, Found& found,
                    std::string& problem) {
    const std::int64_t end = part.y + part.rows;
    // Whole blocks of the file, which are decoded as a whole.
    const std::int64_t together =
        std::min(std::max(source_->Info().blockRows, kPieceBytes / (part.width * 8)), part.rows);
    wide_.resize(static_cast<std::size_t>(together * part.width));
    for (; part.y < end; part.y += part.rows) {
      part.rows = std::min(together, end - part.y);
      if (!source_->ReadWide(part, wide_.data(), part.width, problem)) return false;
      for (std::int64_t j = 0; j < part.rows; ++j, out += stride)
        found.Add(ConvertWide(plan_, fill, wide_.data() + j * part.width, out, part.width));
    }
    return true;
  }

  bool ReadMeans(std::int64_t begin, std::int64_t end, std::string& problem) {
    const std::int64_t n = plan_.shrink, width = plan_.width * n;
    const std::int64_t together = std::clamp<std::int64_t>(kBufferBytes / (width * n * 4), 1, end - begin);
    buffer_.resize(static_cast<std::size_t>(together * n * width));
    // Means are of heights, so what is missing has to be known before.
    for (std::int64_t q = begin; q < end; q += together) {
      const std::int64_t count = std::min(together, end - q);
      Found pixels;
      if (!ReadRows({plan_.fileX, plan_.fileY + q * n, width, count * n}, std::nanf(""), buffer_.data(),
                    width, pixels, problem))
        return false;
      for (std::int64_t j = 0; j < count; ++j) {
        float* row = Row(q + j);
        for (std::int64_t i = 0; i < plan_.width; ++i) row[i] = Mean(buffer_.data() + j * n * width + i * n);
        if (!plan_.westFirst) std::reverse(row, row + plan_.width);
      }
    }
    return true;
  }

  /// Of the heights among the pixels that make a point.
  float Mean(const float* corner) {
    const std::int64_t n = plan_.shrink, width = plan_.width * n;
    double sum = 0;
    std::int64_t count = 0;
    for (std::int64_t j = 0; j < n; ++j)
      for (std::int64_t k = 0; k < n; ++k)
        if (const float v = corner[j * width + k]; !std::isnan(v)) sum += v, ++count;
    const float mean = count ? static_cast<float>(sum / static_cast<double>(count)) : plan_.fill;
    found_.Add({count == 0, std::isnan(mean) ? INFINITY : mean, std::isnan(mean) ? -INFINITY : mean});
    return mean;
  }

  const RasterPlan& plan_;
  RasterJob& job_;
  std::unique_ptr<RasterSource> own_;
  RasterSource* source_ = nullptr;
  std::vector<float> buffer_;
  std::vector<double> wide_;
  Found found_;
};

}  // namespace

std::string ReadRaster(RasterJob& job, const RasterPlan& plan) {
  const RasterInfo& info = job.source->Info();
  // Pieces begin where the file's own pieces begin, and follow one another from the file's first row on.
  const std::int64_t n = plan.shrink, rowBytes = plan.width * n * n * 4;
  const std::int64_t blockRows = std::max<std::int64_t>(RoundedUp(info.blockRows, n) / n, 1);
  const std::int64_t pieceRows = RoundedUp(std::max<std::int64_t>(kPieceBytes / rowBytes, 1), blockRows);
  const std::int64_t lead = n == 1 ? plan.fileY % pieceRows : 0;
  const std::int64_t pieces = (lead + plan.height + pieceRows - 1) / pieceRows;

  const int threads = info.isRandomAccess ? std::max(job.threads, 1) : 1;
  std::vector<PieceReader> readers;
  for (int i = 0; i < threads; ++i) readers.emplace_back(plan, job);
  readers[0].UseSource(job.source);
  std::mutex mutex;
  std::string problem;
  const bool isDone = RunPieces(threads, pieces, job.progress, [&](int worker, std::int64_t piece) {
    const std::int64_t begin = std::max<std::int64_t>(piece * pieceRows - lead, 0);
    const std::int64_t end = std::min((piece + 1) * pieceRows - lead, plan.height);
    std::string why;
    if (readers[static_cast<std::size_t>(worker)].Read(begin, end, why)) return true;
    const std::lock_guard lock(mutex);
    if (problem.empty()) problem = why;
    return false;
  });
  Found found;
  for (const PieceReader& reader : readers) found.Add(reader.WhatWasFound());
  job.hasMissing = found.missing > 0;
  job.lowest = found.lowest;
  job.highest = found.highest;
  job.wasStopped = !isDone && problem.empty();
  return job.wasStopped ? "stopped" : problem;
}

}  // namespace ovhost
