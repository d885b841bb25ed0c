// How much memory there is to take, as the system tells it.
#include "host/base/memory.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "core/memory.h"

namespace ovhost {
namespace {

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

/// The number that stands first in a file; `otherwise` where there is none, as for "max".
std::uint64_t NumberIn(const std::string& path, std::uint64_t otherwise) {
  std::ifstream in(path);
  std::uint64_t number = 0;
  return in >> number ? number : otherwise;
}

/// The sum of the entries of a file of lines `NAME NUMBER`.
std::uint64_t SumOf(const std::string& path, const std::vector<std::string>& names) {
  std::ifstream in(path);
  std::uint64_t sum = 0, number = 0;
  for (std::string name; in >> name >> number;)
    if (std::find(names.begin(), names.end(), name) != names.end()) sum += number;
  return sum;
}

/// How the two versions of control groups call what they tell. Of version 1 the "total" entries count the
/// groups below as well.
struct Files {
  std::vector<std::string> limits;
  std::string usage;
  std::vector<std::string> reclaimable;  ///< entries of memory.stat that the group gives back when asked
};
const Files kVersion1{
    {"memory.limit_in_bytes"}, "memory.usage_in_bytes", {"total_active_file", "total_inactive_file"}};
const Files kVersion2{
    {"memory.max", "memory.high"}, "memory.current", {"active_file", "inactive_file", "slab_reclaimable"}};

std::uint64_t LeftInGroup(const std::string& folder, const Files& files) {
  std::uint64_t limit = kNoLimit;
  for (const std::string& name : files.limits)
    limit = std::min(limit, NumberIn(folder + "/" + name, kNoLimit));
  if (limit == kNoLimit) return kNoLimit;
  const std::uint64_t used = NumberIn(folder + "/" + files.usage, 0),
                      held = used - std::min(used, SumOf(folder + "/memory.stat", files.reclaimable));
  return limit - std::min(limit, held);
}

bool HasWord(const std::string& list, const std::string& word) {
  std::istringstream in(list);
  for (std::string item; std::getline(in, item, ',');)
    if (item == word) return true;
  return false;
}

/// The path of the process's group in a hierarchy, from `proc`/cgroup's lines NUMBER:CONTROLLERS:PATH: that
/// of the memory controller, or, of version 2, the one without a list.
std::string GroupPath(const std::string& proc, bool isVersion2) {
  std::ifstream in(proc + "/cgroup");
  for (std::string line; std::getline(in, line);) {
    const std::size_t a = line.find(':'), b = line.find(':', a + 1);
    if (a == std::string::npos || b == std::string::npos) continue;
    const std::string controllers = line.substr(a + 1, b - a - 1);
    if (isVersion2 ? controllers.empty() : HasWord(controllers, "memory")) return line.substr(b + 1);
  }
  return {};
}

/// The least that the group at the mount point and the groups above it leave. In a container the mount may
/// show a part of the hierarchy only, whose root is `root`.
std::uint64_t LeftInHierarchy(const std::string& mount, const std::string& root, std::string group,
                              const Files& files) {
  if (root != "/" && group.rfind(root, 0) == 0) group.erase(0, root.size());
  std::uint64_t left = kNoLimit;
  for (;;) {
    left = std::min(left, LeftInGroup(mount + group, files));
    const std::size_t slash = group.rfind('/');
    if (slash == std::string::npos) return left;
    group.erase(slash);
  }
}

std::uint64_t SystemMemory() {
  std::ifstream in("/proc/meminfo");
  for (std::string word; in >> word;)
    if (std::uint64_t kib = 0; word == "MemAvailable:" && in >> kib) return kib << 10;
  return static_cast<std::uint64_t>(sysconf(_SC_AVPHYS_PAGES)) *
         static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

/// What the limit of address space leaves, as `ulimit -v` sets it.
std::uint64_t AddressSpace() {
  rlimit limit;
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kNoLimit;
  const std::uint64_t used =
      NumberIn("/proc/self/statm", 0) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return limit.rlim_cur - std::min<std::uint64_t>(limit.rlim_cur, used);
}

}  // namespace

std::uint64_t ControlGroupMemory(const std::string& proc) {
  // A line of mountinfo (proc(5)): number, parent, device, root, mount point, options, further fields, "-",
  // file system, source, its options.
  std::ifstream in(proc + "/mountinfo");
  std::uint64_t left = kNoLimit;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string skipped, root, mount, fileSystem, source, options;
    fields >> skipped >> skipped >> skipped >> root >> mount >> skipped;
    while (fields >> skipped && skipped != "-") {
    }
    fields >> fileSystem >> source >> options;
    if (fileSystem == "cgroup2")
      left = std::min(left, LeftInHierarchy(mount, root, GroupPath(proc, true), kVersion2));
    else if (fileSystem == "cgroup" && HasWord(options, "memory"))
      left = std::min(left, LeftInHierarchy(mount, root, GroupPath(proc, false), kVersion1));
  }
  return left;
}

std::uint64_t FreeMemory() {
  return std::min({SystemMemory(), ControlGroupMemory("/proc/self"), AddressSpace()});
}

bool IsMemoryShort() {
  // The stacks of a few threads, as the loops here start them.
  constexpr std::uint64_t kLittle = 256 << 20;
  return FreeMemory() < kLittle;
}

bool IsForWantOfMemory(const std::exception& problem) {
  return dynamic_cast<const std::bad_alloc*>(&problem) || IsMemoryShort();
}

}  // namespace ovhost

std::uint64_t trMemoryLeft() { return ovhost::FreeMemory() / 4 * 3; }
