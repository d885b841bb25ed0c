// Files that are there whole or not at all.
#include "objectio/whole_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace {

bool WriteAll(int file, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, data, std::min<std::size_t>(size, 1u << 30));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return fsync(file) == 0;
}

/// Makes an empty file beside `path` under a name that nobody can have put a link at; its name is told.
int MakeBeside(const trString& path, trString& name) {
  for (int attempt = 0; attempt < 16; ++attempt) {
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) return -1;
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".tmp%016llx", static_cast<unsigned long long>(random));
    name = path + suffix;
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (file >= 0 || errno != EEXIST) return file;
  }
  return -1;
}

}  // namespace

FileResult WriteWholeFile(const trString& path, const void* data, std::size_t size) {
  trString beside;
  const int file = MakeBeside(path, beside);
  if (file < 0) return FileResult::kNotOpened;
  const bool isWritten = WriteAll(file, static_cast<const char*>(data), size);
  const bool isClosed = close(file) == 0;
  if (isWritten && isClosed && std::rename(beside.c_str(), path.c_str()) == 0) return FileResult::kWritten;
  unlink(beside.c_str());
  return isWritten && isClosed ? FileResult::kNotOpened : FileResult::kNotWritten;
}
