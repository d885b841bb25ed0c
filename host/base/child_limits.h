// What a process that reads foreign files may take.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

namespace ovhost {

/// Limits the calling process to so many bytes of address space more than it has (libraries, and what
/// sanitizers lay out, are there already) and to so many seconds of processor time.
inline void LimitChild(std::uint64_t moreBytes, std::uint64_t seconds) {
  unsigned long long pages = 0;
  if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%llu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + moreBytes;
  const rlimit memory{bytes, bytes}, time{seconds, seconds};
  setrlimit(RLIMIT_AS, &memory);
  setrlimit(RLIMIT_CPU, &time);
}

}  // namespace ovhost
