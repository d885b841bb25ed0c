// What belongs to a session rather than to the process.
//
// Node code reports messages and progress without saying for whom, so each thread knows the session that it
// works for. The main thread of a session says so by a SessionScope; the loops of parallel.h hand it on to
// their workers, and code that starts threads of its own does so with a trThreadSession. A thread without a
// scope works for the session of the process, which is all that a program with one project needs.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "core/ocio.h"
#include "core/thread_session.h"
#include "host/base/log.h"
#include "host/base/progress.h"

namespace ovhost {

struct OV_API SessionContext {
  SessionContext() = default;
  SessionContext(const SessionContext&) = delete;
  SessionContext& operator=(const SessionContext&) = delete;
  /// That of the calling thread. Thread-safe.
  static SessionContext& Current();

  // Messages, by log.cpp. The mutex guards where they go.
  std::mutex output;
  LogFormat format = LogFormat::kText;
  LogLevel lowestLevel = LogLevel::kMessage;
  LogSink logSink = nullptr;
  void* logContext = nullptr;
  std::atomic<long> errors{0}, fileErrors{0}, warnings{0};
  long shownWarnings = 0, shownErrors = 0;  ///< since TellLeftOut

  ProgressSink progressSink = nullptr;
  void* progressContext = nullptr;

  /// For renders and long jobs; 0 for all cores.
  std::atomic<int> threads{0};
  /// Of picture files: what trOcio::gProjectSettings stands for.
  trOcio colours;
  /// Held while heightfields are brought up to date: one request at a time.
  std::recursive_mutex heightfieldTurn;
  /// Networks that feed themselves are told of once a shader, and a few times at most.
  std::atomic<const void*> lastTripped{nullptr};
  std::atomic<int> trips{0};

  /// Of the render in hand, bytes; 0 outside of renders.
  std::atomic<std::uint64_t> memoryBudget{0};
  /// Work that was ended because it can't fit.
  std::atomic<long> memoryRefusals{0};
};

/// Number of threads for renders and long jobs: `count`, or all cores for 0. Main thread only.
OV_API void SetNumThreads(int count);

/// While it lives, its thread works for the session. Per-thread state.
class OV_API SessionScope {
 public:
  explicit SessionScope(SessionContext& context);
  ~SessionScope();
  SessionScope(const SessionScope&) = delete;
  SessionScope& operator=(const SessionScope&) = delete;

 private:
  SessionContext* const outer_;
};

/// While it lives, what is made for the session has so many bytes to fit in; 0 for no limit. One at a time in
/// a session.
class OV_API MemoryScope {
 public:
  explicit MemoryScope(std::uint64_t bytes);
  ~MemoryScope();
  MemoryScope(const MemoryScope&) = delete;
  MemoryScope& operator=(const MemoryScope&) = delete;
  /// Whether something was refused since.
  bool HasRefused() const;

 private:
  SessionContext& session_;
  const std::uint64_t outer_;
  const long refusals_;
};

/// While it lives, long jobs of its thread, and of those that its loops take, end soon once `stop` is set:
/// their reports of progress are answered so. Per-thread state.
class OV_API StopScope {
 public:
  explicit StopScope(const std::atomic<bool>& stop);
  ~StopScope();
  StopScope(const StopScope&) = delete;
  StopScope& operator=(const StopScope&) = delete;
  /// Whether the calling thread's work has been asked to end. Thread-safe.
  static bool IsAsked();

 private:
  const std::atomic<bool>* const outer_;
};

/// While it lives, long jobs of its thread, and of those that its loops take, take so many threads, whatever
/// the session's number is. Per-thread state.
class OV_API ThreadsScope {
 public:
  explicit ThreadsScope(int threads);
  ~ThreadsScope();
  ThreadsScope(const ThreadsScope&) = delete;
  ThreadsScope& operator=(const ThreadsScope&) = delete;

 private:
  const int outer_;
};

}  // namespace ovhost
