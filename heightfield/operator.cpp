// What the heightfield operators share.
#include "heightfield/operator.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "core/thread_session.h"

namespace {

/// Rows handed out one by one to all cores.
class RowTeam {
 public:
  RowTeam(long rows, const std::function<void(long)>& work) : rows_(rows), work_(work) {
    const long helpers = std::min<long>(trNumCoresToUse(), rows) - 1;
    try {
      for (long i = 0; i < helpers; ++i)
        threads_.emplace_back([this, session = trThreadSession()] {
          const trThreadSession::Scope scope(session);
          RunAll();
        });
    } catch (const std::system_error&) {
      // Fewer threads than wished for: those that there are do it.
    }
  }
  ~RowTeam() {
    Stop();
    for (std::thread& thread : threads_) thread.join();
  }
  RowTeam(const RowTeam&) = delete;
  RowTeam& operator=(const RowTeam&) = delete;

  void Stop() { next_ = rows_; }
  /// Does one row; false when none is left to take.
  bool RunOne() {
    const long row = next_.fetch_add(1);
    if (row >= rows_) return false;
    try {
      work_(row);
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
      Stop();
    }
    const std::lock_guard lock(mutex_);
    ++done_;
    changed_.notify_one();
    return true;
  }
  void RunAll() {
    while (RunOne()) continue;
  }
  long Done() {
    const std::lock_guard lock(mutex_);
    return done_;
  }
  /// Until more than `known` rows are done, or something went wrong.
  void Wait(long known) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return done_ > known || problem_; });
  }
  void Finish() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    if (problem_) std::rethrow_exception(problem_);
  }
  bool HasProblem() {
    const std::lock_guard lock(mutex_);
    return problem_ != nullptr;
  }

 private:
  const long rows_;
  const std::function<void(long)>& work_;
  std::atomic<long> next_{0};
  std::mutex mutex_;
  std::condition_variable changed_;
  long done_ = 0;
  std::exception_ptr problem_;
  std::vector<std::thread> threads_;
};

/// The range of a raster while its rows are being made, in any order.
class RowRanges {
 public:
  RowRanges(trHeightfield& field, const std::function<void(long)>& work)
      : field_(field), work_(work), ranges_(static_cast<std::size_t>(field.height)) {}

  void Make(long row) {
    work_(row);
    ranges_[static_cast<std::size_t>(row)].Take(field_.HfScanlineRaw(static_cast<int>(row)), field_.width);
  }
  void SetRange() const {
    trHeightRange whole;
    for (const trHeightRange& range : ranges_) whole.Take(range);
    field_.HfSetZRange(whole);
  }

 private:
  trHeightfield& field_;
  const std::function<void(long)>& work_;
  std::vector<trHeightRange> ranges_;
};

}  // namespace

long MakeFlat(trHeightfield& field) {
  if (!field.Init(0, 0, 2, 2)) return 0;
  field.Fill(0);
  field.HfFindZRange();
  return 1;
}

int RoundedCount(double count) {
  return static_cast<int>(std::clamp(std::floor(count + 0.5), -1.0 * INT_MAX, 1.0 * INT_MAX));
}

void ForEachRow(long rows, const std::function<void(long)>& work) {
  // Rows by the bunch, so that taking one costs nothing beside working on it.
  constexpr long kBunch = 16;
  const std::function<void(long)> bunch = [&](long index) {
    for (long row = index * kBunch; row < std::min(rows, (index + 1) * kBunch); ++row) work(row);
  };
  RowTeam team((rows + kBunch - 1) / kBunch, bunch);
  team.RunAll();
  team.Finish();
}

bool ForEachRow(trBase& node, const trString& text, long rows, const std::function<void(long)>& work) {
  RowTeam team(rows, work);
  unsigned long token = 0;
  for (long reported = 0; reported < rows && !team.HasProblem();) {
    if (!node.ReportProgress(token, text, static_cast<float>(reported) / static_cast<float>(rows), -1.0f)) {
      team.Stop();
      team.Finish();
      return false;
    }
    ++reported;
    while (team.Done() < reported && !team.HasProblem())
      if (!team.RunOne()) team.Wait(reported - 1);
  }
  team.Finish();
  return true;
}

void MakeRows(trHeightfield& field, const std::function<void(long)>& work) {
  RowRanges ranges(field, work);
  ForEachRow(field.height, [&](long row) { ranges.Make(row); });
  ranges.SetRange();
}

bool MakeRows(trHeightfield& field, const trString& text, const std::function<void(long)>& work) {
  RowRanges ranges(field, work);
  if (!ForEachRow(field, text, field.height, [&](long row) { ranges.Make(row); })) return false;
  ranges.SetRange();
  return true;
}

long OrdinaryOperator::HfOperate() {
  if (HfIsValid()) return 1;
  long result = 1;
  trHeightfield* const input = HfInput();
  if (input) result = input->HfOperateTS();
  if (!(result & 1)) return 0;
  if (!Compute(HasPoints(input) ? input : nullptr)) {
    if (!keepsFailed_) return 0;
    HfFindZRange();
    HfValidate();
    return 0;
  }
  HfValidate();
  return result;
}

long OrdinaryOperator::CopyRows(const trHeightfield& input) {
  return MapRows(input, [](const float* from, float* to, std::int64_t count) {
    std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(float));
  });
}
