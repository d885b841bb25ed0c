// Shares pieces of a long job among threads of its own: a heightfield may be brought up to date from within
// a parallel loop, whose threads must not be made to wait for one another.
#pragma once

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "core/thread_session.h"
#include "host/raster/height_grid.h"

namespace ovhost {

/// Calls body(worker, piece) for pieces 0 to `count` - 1 until one returns false or `progress` says stop;
/// false then. What a piece throws is thrown here. The caller's thread is worker 0 and reports progress.
template <typename Body>
bool RunPieces(int threads, std::int64_t count, const WorkProgress& progress, Body body) {
  std::atomic<std::int64_t> next{0}, done{0};
  std::atomic<bool> stop{false};
  std::mutex mutex;
  std::exception_ptr thrown;
  const trThreadSession session;
  const auto work = [&](int worker) {
    const trThreadSession::Scope scope(session);
    try {
      for (std::int64_t piece; !stop && (piece = next++) < count;) {
        if (worker == 0 && !progress.Report(static_cast<double>(done) / static_cast<double>(count)))
          stop = true;
        else if (!body(worker, piece))
          stop = true;
        ++done;
      }
    } catch (...) {
      const std::lock_guard lock(mutex);
      thrown = std::current_exception();
      stop = true;
    }
  };
  {
    std::vector<std::jthread> others;
    const auto wanted = static_cast<int>(std::min<std::int64_t>(threads, count));
    try {
      for (int i = 1; i < wanted; ++i) others.emplace_back(work, i);
    } catch (const std::system_error&) {
      // Fewer threads will do.
    }
    work(0);
  }
  if (thrown) std::rethrow_exception(thrown);
  return !stop;
}

}  // namespace ovhost
