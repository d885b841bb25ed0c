// Lines added to text files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <mutex>

#include "core/output_file.h"

namespace {

/// One line at a time, whichever node writes to whichever file.
std::mutex turn;

/// A project from elsewhere must not add to what a shell or a program reads when it starts.
bool IsHidden(const trString& path) {
  for (const std::filesystem::path& part : std::filesystem::path(path)) {
    const std::string name = part.string();
    if (name.size() > 1 && name[0] == '.' && name != "..") return true;
  }
  return false;
}

/// Opens what is a plain file, neither hidden nor a program, without following a link in its place and
/// without waiting for who reads a pipe.
int OpenToAppend(const trString& path) {
  if (IsHidden(path)) return -1;
  const int file =
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  struct stat status;
  if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
                    (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)))) {
    close(file);
    return -1;
  }
  return file;
}

bool WriteAll(int file, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

trFileResult trAppendLine(const trString& path, const trString& line) {
  const std::string text = line + "\n";
  const std::lock_guard lock(turn);
  const int file = OpenToAppend(path);
  if (file < 0) return trFileResult::kNotOpened;
  const bool isWritten = WriteAll(file, text.data(), text.size());
  return close(file) == 0 && isWritten ? trFileResult::kWritten : trFileResult::kNotWritten;
}
