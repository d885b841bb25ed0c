// Reading files that may be anything.
#pragma once

#include <cstdint>
#include <string>

namespace ovhost {

/// Plain files alone are read; a pipe or device in their place, which could keep us waiting, counts as
/// damaged. One thread at a time.
class FileReader {
 public:
  explicit FileReader(const std::string& path);
  ~FileReader();
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  bool IsMissing() const { return isMissing_; }
  /// Fills all of the data, or is false.
  bool Read(void* data, std::uint64_t size);
  /// What is there, up to so many bytes; 0 at the end, or where it can't be read.
  std::uint64_t ReadSome(void* data, std::uint64_t size);

 private:
  int file_ = -1;
  bool isMissing_ = false;
};

}  // namespace ovhost
