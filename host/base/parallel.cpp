// Loops over all cores, by TBB.
//
// The thread sanitizer can't see what TBB, which isn't built with it, does to hand work over. So this file is
// built without the sanitizer as well, and tells it of every hand-over: what is written before a loop is
// there for its bodies, what they write is there after it, and the bodies in one slot run one after the
// other.
#include "host/base/parallel.h"

#include <pthread.h>
#include <sys/resource.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <mutex>
#include <optional>

#include "host/base/session_context.h"

#ifdef OV_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace ovhost {
namespace {

#ifdef OV_THREAD_SANITIZER
void Release(void* address) { __tsan_release(address); }
void Acquire(void* address) { __tsan_acquire(address); }
#else
void Release(void*) {}
void Acquire(void*) {}
#endif

constexpr unsigned kMaxSlots = 4096;

/// Of a thread: shaders nest 512 deep, and one that keeps the states of two networks apart takes 17 KB; more
/// under the sanitizers. Only what is used takes memory.
constexpr size_t kStackBytes = size_t{64} << 20;

/// Threads that loops start take their stack's size from this.
void DeepenWorkers() {
  static const tbb::global_control stacks(tbb::global_control::thread_stack_size, kStackBytes);
}

/// The hand-overs of a loop, each known by an address, and whom it works for.
struct HandOver {
  HandOver() { Release(&begin); }
  ~HandOver() { Acquire(&end); }
  char begin = 0, end = 0;
  const trThreadSession session;
};

char slots[kMaxSlots];

/// A body's part in it.
struct Part {
  explicit Part(HandOver& handOver)
      : whole(handOver), slot(&slots[std::min(ThreadSlot(), kMaxSlots - 1)]), scope(handOver.session) {
    Acquire(&whole.begin);
    Acquire(slot);
  }
  ~Part() {
    Release(slot);
    Release(&whole.end);
  }
  HandOver& whole;
  char* const slot;
  const trThreadSession::Scope scope;
};

/// The library's limit on threads is one for the process, and the lowest that anybody sets. So all who run
/// with a number of threads at a time share one, which is the sum of what they ask for.
class ThreadLimit {
 public:
  explicit ThreadLimit(int threads) : threads_(static_cast<size_t>(threads)) { Change(threads_); }
  ~ThreadLimit() { Change(-threads_); }
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

 private:
  /// By `more` modulo the size's range.
  static void Change(size_t more) {
    static std::mutex mutex;
    static size_t sum = 0;
    static std::optional<tbb::global_control> limit;
    const std::lock_guard lock(mutex);
    sum += more;
    limit.reset();
    if (sum > 0) limit.emplace(tbb::global_control::max_allowed_parallelism, sum);
  }

  const size_t threads_;
};

}  // namespace

void DeepenStacks() {
  rlimit limit;
  if (getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur < kStackBytes) {
    limit.rlim_cur = std::min<rlim_t>(kStackBytes, limit.rlim_max);
    setrlimit(RLIMIT_STACK, &limit);
  }
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return;
  if (pthread_attr_setstacksize(&attributes, kStackBytes) == 0) pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

void ParallelForRanges(size_t count, const RangeCall& call) {
  DeepenWorkers();
  HandOver handOver;
  tbb::parallel_for(tbb::blocked_range<size_t>(0, count), [&](const tbb::blocked_range<size_t>& range) {
    const Part part(handOver);
    call(range.begin(), range.end());
  });
}

void RunWithThreads(int threads, const RangeCall& job) {
  DeepenWorkers();
  const ThreadLimit limit(threads);
  const ThreadsScope scope(threads);
  tbb::task_arena arena(threads);
  HandOver handOver;
  arena.execute([&] {
    const Part part(handOver);
    job(0, 1);
  });
}

unsigned ThreadSlot() {
  return static_cast<unsigned>(std::max(0, tbb::this_task_arena::current_thread_index()));
}

unsigned NumThreadSlots() { return static_cast<unsigned>(tbb::this_task_arena::max_concurrency()); }

}  // namespace ovhost
