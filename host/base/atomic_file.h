// A file that appears under its name only when it is whole. All output goes through here.
#pragma once

#include <cstdint>
#include <string>

#include "core/api.h"

namespace ovhost {

/// Bytes go to a new file beside `path`, whose name nobody can guess or have put there; Commit flushes it to
/// disc, renames it and flushes the folder. Without a Commit, or after any failure, what stood under the name
/// is left as it was. A file that is replaced keeps its mode, and owner and group where the system lets us;
/// where `path` is a symbolic link the file it leads to is replaced. Other hard links keep the old file. What
/// isn't a plain file (a folder, a device, a pipe) is refused. One thread at a time.
class OV_API AtomicFile {
 public:
  explicit AtomicFile(const std::string& path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Where the bytes lie until they are complete, for libraries that write by name.
  const std::string& TemporaryPath() const { return temporary_; }
  /// Append, and write at an offset. After a failure they do nothing; Commit tells.
  void Write(const void* data, std::uint64_t size);
  void WriteAt(std::uint64_t offset, const void* data, std::uint64_t size);
  void Write(const std::string& text) { Write(text.data(), text.size()); }
  /// Another library has written the file at TemporaryPath, and has perhaps made it anew.
  void Adopt();
  /// Bytes appended so far.
  std::uint64_t Size() const { return size_; }
  /// Empty, or why the file can't be written.
  const std::string& Problem() const { return problem_; }
  /// Puts the file in place. Empty, or why it isn't.
  std::string Commit();

 private:
  bool FindTarget();
  void Create();
  void TakeAttributes();
  void SyncFolder();
  void Fail(const char* what);
  void Refuse(const std::string& why);

  std::string path_, target_, temporary_, problem_;
  int file_ = -1;
  std::uint64_t size_ = 0;
};

/// Writes a whole file so. Empty, or why it failed.
OV_API std::string WriteFileAtomically(const std::string& path, const void* data, std::uint64_t size);

}  // namespace ovhost
