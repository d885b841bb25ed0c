// Plain files, and nothing that waits for a writer.
#include "host/session/file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ovhost {

FileReader::FileReader(const std::string& path)
    : file_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  struct stat info;
  isMissing_ = file_ < 0 && errno == ENOENT;
  if (file_ < 0 || (fstat(file_, &info) == 0 && S_ISREG(info.st_mode))) return;
  close(file_);
  file_ = -1;
}

FileReader::~FileReader() {
  if (file_ >= 0) close(file_);
}

std::uint64_t FileReader::ReadSome(void* data, std::uint64_t size) {
  if (file_ < 0) return 0;
  ssize_t got;
  do {
    got = read(file_, data, std::min<std::uint64_t>(size, 1u << 30));
  } while (got < 0 && errno == EINTR);
  return got > 0 ? static_cast<std::uint64_t>(got) : 0;
}

bool FileReader::Read(void* data, std::uint64_t size) {
  char* at = static_cast<char*>(data);
  while (size > 0) {
    const std::uint64_t got = ReadSome(at, size);
    if (got == 0) return false;
    at += got;
    size -= got;
  }
  return file_ >= 0;
}

}  // namespace ovhost
