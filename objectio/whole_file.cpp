// Files that are there whole or not at all.
#include "objectio/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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

}  // namespace

FileResult WriteWholeFile(const trString& path, const void* data, std::size_t size) {
  const trString beside = path + ".tmp";
  const int file = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return FileResult::kNotOpened;
  const bool isWritten = WriteAll(file, static_cast<const char*>(data), size);
  const bool isClosed = close(file) == 0;
  if (isWritten && isClosed && std::rename(beside.c_str(), path.c_str()) == 0) return FileResult::kWritten;
  unlink(beside.c_str());
  return isWritten && isClosed ? FileResult::kNotOpened : FileResult::kNotWritten;
}
