// How much memory there is to take, as the system tells it.
#include "host/base/memory.h"

#include <unistd.h>

#include <fstream>
#include <string>

std::uint64_t ovhost::FreeMemory() {
  std::ifstream in("/proc/meminfo");
  for (std::string word; in >> word;)
    if (std::uint64_t kib = 0; word == "MemAvailable:" && in >> kib) return kib << 10;
  return static_cast<std::uint64_t>(sysconf(_SC_AVPHYS_PAGES)) *
         static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}
