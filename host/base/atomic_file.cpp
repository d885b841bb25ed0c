// Writes beside the target, flushes and renames.
#include "host/base/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ovhost {

AtomicFile::AtomicFile(const std::string& path)
    : path_(path), temporary_(path + ".tmp" + std::to_string(getpid())) {
  file_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) Fail("written");
}

AtomicFile::~AtomicFile() {
  if (file_ < 0) return;
  close(file_);
  unlink(temporary_.c_str());
}

void AtomicFile::Fail(const char* what) {
  if (problem_.empty()) problem_ = path_ + ": can't be " + what + ": " + std::strerror(errno);
}

void AtomicFile::Write(const void* data, std::uint64_t size) {
  WriteAt(size_, data, size);
  size_ += size;
}

void AtomicFile::WriteAt(std::uint64_t offset, const void* data, std::uint64_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0 && problem_.empty()) {
    const ssize_t written =
        pwrite(file_, at, std::min<std::uint64_t>(size, 1u << 30), static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return Fail("written");
    at += written;
    offset += static_cast<std::uint64_t>(written);
    size -= static_cast<std::uint64_t>(written);
  }
}

void AtomicFile::Adopt() {
  if (file_ < 0) return;
  close(file_);
  file_ = open(temporary_.c_str(), O_WRONLY | O_CLOEXEC);
  if (file_ < 0) Fail("written");
}

std::string AtomicFile::Commit() {
  if (file_ < 0) return problem_;
  if (problem_.empty() && fsync(file_) != 0 && errno != EINVAL) Fail("flushed");
  if (close(file_) != 0) Fail("closed");
  file_ = -1;
  if (problem_.empty() && std::rename(temporary_.c_str(), path_.c_str()) != 0) Fail("put in place");
  if (!problem_.empty()) unlink(temporary_.c_str());
  return problem_;
}

}  // namespace ovhost
