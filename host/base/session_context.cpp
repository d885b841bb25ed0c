// The sessions that threads work for.
#include "host/base/session_context.h"

#include <algorithm>
#include <thread>

#include "core/messages.h"

namespace {

constexpr int kMaxThreads = 256;

thread_local ovhost::SessionContext* current = nullptr;
thread_local int threadsHere = 0;  ///< 0: as many as the session takes
thread_local const std::atomic<bool>* stopHere = nullptr;

}  // namespace

namespace ovhost {

SessionContext& SessionContext::Current() {
  // Never destroyed: threads may report to the very end of the process.
  static SessionContext& process = *new SessionContext;
  return current ? *current : process;
}

SessionScope::SessionScope(SessionContext& context) : outer_(current) { current = &context; }
SessionScope::~SessionScope() { current = outer_; }

ThreadsScope::ThreadsScope(int threads) : outer_(threadsHere) {
  threadsHere = std::clamp(threads, 1, kMaxThreads);
}
ThreadsScope::~ThreadsScope() { threadsHere = outer_; }

StopScope::StopScope(const std::atomic<bool>& stop) : outer_(stopHere) { stopHere = &stop; }
StopScope::~StopScope() { stopHere = outer_; }
bool StopScope::IsAsked() { return stopHere && stopHere->load(std::memory_order_relaxed); }

MemoryScope::MemoryScope(std::uint64_t bytes)
    : session_(SessionContext::Current()),
      outer_(session_.memoryBudget.exchange(bytes)),
      refusals_(session_.memoryRefusals) {}
MemoryScope::~MemoryScope() { session_.memoryBudget = outer_; }
bool MemoryScope::HasRefused() const { return session_.memoryRefusals > refusals_; }

void SetNumThreads(int count) { SessionContext::Current().threads = std::clamp(count, 0, kMaxThreads); }

}  // namespace ovhost

trThreadSession::trThreadSession() : context_(current), threads_(threadsHere), stop_(stopHere) {}

void trThreadSession::Enter() const {
  current = context_;
  threadsHere = threads_;
  stopHere = stop_;
}

int trNumCoresToUse() {
  if (threadsHere > 0) return threadsHere;
  if (const int threads = ovhost::SessionContext::Current().threads) return threads;
  const unsigned cores = std::thread::hardware_concurrency();
  return cores ? static_cast<int>(cores) : 1;
}

int trMaxThreads() {
  // Nodes size their per-thread arrays when they are made, so the answer must hold whatever is set later.
  static const int cores = static_cast<int>(std::thread::hardware_concurrency());
  return std::max(kMaxThreads, cores) + 1;
}
