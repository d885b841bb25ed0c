// Priorities of threads on Linux, where each thread has a nice value of its own.
#include "heightfield/thread_priority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "core/messages.h"

void LowerThreadPriority() {
  const auto self = static_cast<id_t>(syscall(SYS_gettid));
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, self);
  if (errno == 0) setpriority(PRIO_PROCESS, self, nice + 1);
  if (errno != 0) trOutWarning("SetThreadPriority failed (" + std::to_string(errno) + ")");
}
