// Opens and reads plain files.
#include "host/base/plain_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ovhost {
namespace {

bool Check(const struct stat& status, std::string& problem) {
  if (S_ISREG(status.st_mode)) return true;
  problem = S_ISDIR(status.st_mode) ? "is a folder" : "is not a file";
  return false;
}

}  // namespace

PlainFile::PlainFile(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  struct stat status;
  if (file_ < 0 || fstat(file_, &status) != 0) {
    isMissing_ = file_ < 0 && errno == ENOENT;
    problem_ = std::strerror(errno);
  } else if (Check(status, problem_)) {
    size_ = static_cast<std::uint64_t>(status.st_size);
  }
}

PlainFile::~PlainFile() {
  if (file_ >= 0) close(file_);
}

std::uint64_t PlainFile::ReadSome(void* data, std::uint64_t size) {
  if (!problem_.empty()) return 0;
  ssize_t got;
  do {
    got = read(file_, data, std::min<std::uint64_t>(size, 1u << 30));
  } while (got < 0 && errno == EINTR);
  if (got < 0) problem_ = std::strerror(errno);
  return got > 0 ? static_cast<std::uint64_t>(got) : 0;
}

bool PlainFile::Read(void* data, std::uint64_t size) {
  char* at = static_cast<char*>(data);
  while (size > 0) {
    const std::uint64_t got = ReadSome(at, size);
    if (got == 0) return false;
    at += got;
    size -= got;
  }
  return problem_.empty();
}

bool IsPlainFile(const std::string& path, std::string& problem) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return problem = std::strerror(errno), false;
  return Check(status, problem);
}

bool ReadPlainFile(const std::string& path, std::uint64_t limit, std::string& text, std::string& problem) {
  PlainFile file(path);
  if (file.Problem().empty() && file.Size() > limit)
    return problem = "is larger than " + std::to_string(limit >> 20) + " MiB", false;
  text.resize(file.Size());
  if (file.Read(text.data(), text.size())) return true;
  problem = file.Problem().empty() ? "became shorter while it was read" : file.Problem();
  return false;
}

}  // namespace ovhost
