// Files in memory, for writers of pictures that can't be kept from files in any other way.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace ovhost {

/// A file without a name on any disc. Of the library's own buffers, those of TIFF can't be read back while
/// they are written, and deep OpenEXRs don't go to them.
class MemoryFile {
 public:
  MemoryFile() : file_(memfd_create("picture", MFD_CLOEXEC)) {}
  ~MemoryFile() {
    if (file_ >= 0) close(file_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string Name() const { return "/proc/self/fd/" + std::to_string(file_); }
  bool ReadAll(std::vector<unsigned char>& bytes) const {
    const off_t size = lseek(file_, 0, SEEK_END);
    if (size < 0) return false;
    bytes.resize(static_cast<size_t>(size));
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t got = pread(file_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
      if (got <= 0) return false;
      done += static_cast<size_t>(got);
    }
    return true;
  }

 private:
  int file_;
};

}  // namespace ovhost
