#include "objectio/blocks.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "core/messages.h"
#include "core/thread_session.h"

void ForBlocks(long count, long block, const std::function<void(long begin, long end)>& work) {
  std::atomic<long> next{0};
  std::mutex mutex;
  std::exception_ptr problem;
  const auto run = [&] {
    for (long begin; (begin = next.fetch_add(block)) < count;) try {
        work(begin, std::min(begin + block, count));
      } catch (...) {
        const std::lock_guard lock(mutex);
        if (!problem) problem = std::current_exception();
        next = count;
      }
  };
  {
    std::vector<std::thread> helpers;
    const long wanted = std::min<long>(trNumCoresToUse(), (count + block - 1) / block) - 1;
    try {
      for (long i = 0; i < wanted; ++i)
        helpers.emplace_back([&run, session = trThreadSession()] {
          const trThreadSession::Scope scope(session);
          run();
        });
    } catch (const std::system_error&) {
      // Fewer threads than wished for: those that there are do it.
    }
    run();
    for (std::thread& helper : helpers) helper.join();
  }
  if (problem) std::rethrow_exception(problem);
}
