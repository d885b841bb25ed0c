// Loops over all cores, whose bodies work for the session of whoever runs them. The library that runs them is
// known to the .cpp file alone.
#pragma once

#include <cstddef>
#include <memory>

#include "core/api.h"

namespace ovhost {

/// A reference to something that is called with the numbers of a range, begin to end. It must outlive this.
class RangeCall {
 public:
  template <typename Call>
  explicit RangeCall(const Call& call)
      : target_(std::addressof(call)), invoke_([](const void* target, size_t begin, size_t end) {
          (*static_cast<const Call*>(target))(begin, end);
        }) {}
  void operator()(size_t begin, size_t end) const { invoke_(target_, begin, end); }

 private:
  const void* target_;
  void (*invoke_)(const void*, size_t, size_t);
};

/// Calls `call` for ranges that together are 0 to `count`, in any order and at once, and waits for all.
/// Thread-safe.
OV_API void ParallelForRanges(size_t count, const RangeCall& call);

/// Calls body(i) for every i below `count`, in any order and at once, and waits for all. Thread-safe.
template <typename Body>
void ParallelFor(size_t count, const Body& body) {
  ParallelForRanges(count, RangeCall([&body](size_t begin, size_t end) {
                      for (size_t i = begin; i < end; ++i) body(i);
                    }));
}

/// How many of `wanted` further threads the system lets this process start now. Thread-safe.
OV_API int StartableThreads(int wanted);

/// Gives this thread, and threads started from now on, room for the deepest shader networks. The threads of
/// the loops here have it anyway. Main thread only, before anything else runs.
OV_API void DeepenStacks();

OV_API void RunWithThreads(int threads, const RangeCall& job);
/// Runs job(), whose loops take at most `threads` threads: this one and others. Long jobs inside of it are
/// told to take as many. Thread-safe.
template <typename Job>
void WithThreads(int threads, const Job& job) {
  RunWithThreads(threads, RangeCall([&job](size_t, size_t) { job(); }));
}

/// The calling thread's number among those that its loops may take: below NumThreadSlots, and no other
/// thread's while a body runs. 0 outside of loops. Thread-safe.
OV_API unsigned ThreadSlot();
OV_API unsigned NumThreadSlots();

}  // namespace ovhost
