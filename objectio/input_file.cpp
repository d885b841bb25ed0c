#include "objectio/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

class OpenFile {
 public:
  // A pipe that nobody writes to would be waited for.
  explicit OpenFile(const trString& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~OpenFile() {
    if (file_ >= 0) close(file_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int Get() const { return file_; }

 private:
  int file_;
};

}  // namespace

InputFile::InputFile(const trString& path) {
  const OpenFile file(path);
  struct stat status {};
  if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  const auto size = static_cast<std::size_t>(status.st_size);
  bytes_ = std::make_unique_for_overwrite<unsigned char[]>(size);
  while (size_ < size) {
    const ssize_t got = read(file.Get(), bytes_.get() + size_, size - size_);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return;
    if (got == 0) break;
    size_ += static_cast<std::size_t>(got);
  }
  isRead_ = true;
}
