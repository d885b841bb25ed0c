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
#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/messages.h"
#include "core/parallel.h"
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

/// What all loops need before they take so many threads: the depth of stack of those that they start, and a
/// limit where fewer can be started, for TBB ends the process where it can't start one.
void PrepareWorkers(int threads) {
  using Control = tbb::global_control;
  static std::atomic<int> proven{0};
  static std::mutex mutex;
  static std::optional<Control> stacks, limit;
  if (threads <= proven) return;
  const std::lock_guard lock(mutex);
  if (!stacks) stacks.emplace(Control::thread_stack_size, kStackBytes);
  if (threads <= proven || limit) return;
  const int startable = 1 + StartableThreads(threads - 1);
  if (startable < threads) {
    limit.emplace(Control::max_allowed_parallelism, static_cast<size_t>(startable));
    trWarning("only " + std::to_string(startable) +
              (startable > 1 ? " threads run at once" : " thread runs at once") + ": no more can be started");
  }
  proven = threads;
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

int StartableThreads(int wanted) {
  std::mutex gate;
  std::vector<pthread_t> threads(static_cast<size_t>(std::max(wanted, 0)));
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return 0;
  pthread_attr_setstacksize(&attributes, kStackBytes);
  int count = 0;
  {
    // All of them wait here, so that they live side by side.
    const std::lock_guard closed(gate);
    const auto wait = [](void* at) -> void* {
      const std::lock_guard passed(*static_cast<std::mutex*>(at));
      return nullptr;
    };
    while (count < wanted &&
           pthread_create(&threads[static_cast<size_t>(count)], &attributes, wait, &gate) == 0)
      ++count;
  }
  for (int i = 0; i < count; ++i) pthread_join(threads[static_cast<size_t>(i)], nullptr);
  pthread_attr_destroy(&attributes);
  return count;
}

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
  PrepareWorkers(
      static_cast<int>(tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism)));
  HandOver handOver;
  tbb::parallel_for(tbb::blocked_range<size_t>(0, count), [&](const tbb::blocked_range<size_t>& range) {
    const Part part(handOver);
    call(range.begin(), range.end());
  });
}

void RunWithThreads(int threads, const RangeCall& job) {
  PrepareWorkers(threads);
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

void trParallelFor(long count, const std::function<void(long, unsigned)>& work) {
  const auto run = [&] {
    ovhost::ParallelFor(static_cast<size_t>(std::max(count, 0L)),
                        [&work](size_t i) { work(static_cast<long>(i), ovhost::ThreadSlot()); });
  };
  // Inside of a render its threads do the work.
  if (tbb::this_task_arena::current_thread_index() != tbb::task_arena::not_initialized)
    run();
  else
    ovhost::WithThreads(trNumCoresToUse(), run);
}
