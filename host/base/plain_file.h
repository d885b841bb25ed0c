// Files that others name: plain ones of a bearable size, and nothing that waits for somebody.
#pragma once

#include <cstdint>
#include <string>

#include "core/api.h"

namespace ovhost {

/// A plain file that is read from its beginning. A pipe, a device or a folder in its place is refused, and
/// not waited for. One thread at a time.
class PlainFile {
 public:
  explicit PlainFile(const std::string& path);
  ~PlainFile();
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  /// Why it can't be opened or read; empty while it can.
  const std::string& Problem() const { return problem_; }
  bool IsMissing() const { return isMissing_; }
  /// In bytes, when it was opened.
  std::uint64_t Size() const { return size_; }
  /// Fills all of the data, or is false.
  bool Read(void* data, std::uint64_t size);
  /// What is there, up to so many bytes; 0 at the end, or where it can't be read.
  std::uint64_t ReadSome(void* data, std::uint64_t size);

 private:
  int file_ = -1;
  bool isMissing_ = false;
  std::uint64_t size_ = 0;
  std::string problem_;
};

/// Reads a whole plain file of at most `limit` bytes. False with the reason in `problem`. Thread-safe.
OV_API bool ReadPlainFile(const std::string& path, std::uint64_t limit, std::string& text,
                          std::string& problem);

/// Whether the path leads to a plain file, for libraries that open files themselves. Thread-safe.
OV_API bool IsPlainFile(const std::string& path, std::string& problem);

}  // namespace ovhost
