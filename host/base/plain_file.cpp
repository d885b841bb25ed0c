// Reads whole files.
#include "host/base/plain_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ovhost {
namespace {

bool Check(const struct stat& status, std::string& problem) {
  if (S_ISREG(status.st_mode)) return true;
  problem = S_ISDIR(status.st_mode) ? "is a folder" : "is not a file";
  return false;
}

bool Fail(std::string& problem) { return problem = std::strerror(errno), false; }

}  // namespace

bool IsPlainFile(const std::string& path, std::string& problem) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return Fail(problem);
  return Check(status, problem);
}

bool ReadPlainFile(const std::string& path, std::uint64_t limit, std::string& text, std::string& problem) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return Fail(problem);
  const auto read = [&] {
    struct stat status;
    if (fstat(file, &status) != 0) return Fail(problem);
    if (!Check(status, problem)) return false;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > limit) return problem = "is larger than " + std::to_string(limit >> 20) + " MiB", false;
    text.resize(size);
    for (std::size_t done = 0; done < size;) {
      const ssize_t got = pread(file, text.data() + done, size - done, static_cast<off_t>(done));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return Fail(problem);
      if (got == 0) return problem = "became shorter while it was read", false;
      done += static_cast<std::size_t>(got);
    }
    return true;
  };
  const bool isRead = read();
  close(file);
  return isRead;
}

}  // namespace ovhost
