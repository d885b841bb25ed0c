// Writes beside the target, flushes and renames.
#include "host/base/atomic_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/output_file.h"

namespace ovhost {
namespace {

/// As many as the system follows itself (Linux, path_resolution(7)).
constexpr int kMaxLinks = 40;
constexpr int kMaxAttempts = 100;

/// Up to and with the last slash; empty for a bare name.
std::string FolderPart(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// ".tmp-" and 16 random digits.
std::string RandomSuffix() {
  unsigned long long random = 0;
  while (getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
  }
  char text[32];
  std::snprintf(text, sizeof text, ".tmp-%016llx", random);
  return text;
}

/// Whether the link may be followed: in a folder that everybody writes to, such as /tmp, somebody else's link
/// could lead anywhere. The rule is the kernel's own for opening (fs.protected_symlinks).
bool IsTrustedLink(const std::string& path, const struct stat& link) {
  const std::string folder = FolderPart(path);
  struct stat around;
  if (stat(folder.empty() ? "." : folder.c_str(), &around) != 0) return false;
  const bool isShared = (around.st_mode & S_ISVTX) && (around.st_mode & S_IWOTH);
  return !isShared || link.st_uid == geteuid() || link.st_uid == around.st_uid;
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path) : path_(path), target_(path) {
  if (FindTarget()) Create();
}

AtomicFile::~AtomicFile() {
  if (file_ < 0) return;
  close(file_);
  unlink(temporary_.c_str());
}

void AtomicFile::Fail(const char* what) {
  Refuse(std::string("can't be ") + what + ": " + std::strerror(errno));
}

void AtomicFile::Refuse(const std::string& why) {
  if (problem_.empty()) problem_ = path_ + ": " + why;
}

/// Follows symbolic links to what is to be replaced, or made.
bool AtomicFile::FindTarget() {
  struct stat status;
  for (int links = 0; lstat(target_.c_str(), &status) == 0 && S_ISLNK(status.st_mode); ++links) {
    char text[PATH_MAX];
    const ssize_t length = readlink(target_.c_str(), text, sizeof text);
    if (length < 0) return Fail("written"), false;
    if (links == kMaxLinks || !IsTrustedLink(target_, status))
      return Refuse("can't be written: it is a link that isn't to be followed"), false;
    const std::string to(text, static_cast<std::size_t>(length));
    target_ = to.rfind('/', 0) == 0 ? to : FolderPart(target_) + to;
  }
  if (lstat(target_.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    return Refuse(S_ISDIR(status.st_mode) ? "can't be written: it is a folder"
                                          : "can't be written: it isn't a file"),
           false;
  return true;
}

/// A new file beside the target, for nobody else to read until it has the mode of what it replaces. The name
/// begins with the target's, so that what a kill leaves tells what it was.
void AtomicFile::Create() {
  const std::string folder = FolderPart(target_);
  struct stat old;
  const mode_t mode = stat(target_.c_str(), &old) == 0 ? 0600 : 0666;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    const std::string suffix = RandomSuffix();
    temporary_ = folder + target_.substr(folder.size(), NAME_MAX - suffix.size()) + suffix;
    file_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (file_ >= 0 || errno != EEXIST) break;
  }
  if (file_ < 0) Fail("written");
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
  file_ = open(temporary_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  struct stat status;
  if (file_ < 0 || fstat(file_, &status) != 0) {
    Fail("written");
    unlink(temporary_.c_str());
  } else if (!S_ISREG(status.st_mode)) {
    Refuse("can't be written: something else took its place");
  }
}

/// Mode, owner and group of the file that will be replaced. Who may not give files away keeps the group if
/// he can, and has the rest for his own, without rights that were meant for another owner.
void AtomicFile::TakeAttributes() {
  struct stat old, now;
  if (stat(target_.c_str(), &old) != 0 || fstat(file_, &now) != 0) return;
  mode_t mode = old.st_mode & 07777;
  if ((old.st_uid != now.st_uid || old.st_gid != now.st_gid) && fchown(file_, old.st_uid, old.st_gid) != 0) {
    mode &= ~static_cast<mode_t>(S_ISUID);
    if (fchown(file_, static_cast<uid_t>(-1), old.st_gid) != 0) mode &= ~static_cast<mode_t>(S_ISGID);
  }
  if (mode != (now.st_mode & 07777) && fchmod(file_, mode) != 0) Fail("given its mode");
}

/// Without this a power loss may undo the rename. Folders that can't be opened or flushed, as on some network
/// file systems, are left to the system.
void AtomicFile::SyncFolder() {
  const std::string folder = FolderPart(target_);
  const int file = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) return;
  if (fsync(file) != 0 && errno == EIO) Fail("flushed");
  close(file);
}

std::string AtomicFile::Commit() {
  if (file_ < 0) return problem_;
  if (problem_.empty()) TakeAttributes();
  if (problem_.empty() && fsync(file_) != 0 && errno != EINVAL) Fail("flushed");
  if (close(file_) != 0) Fail("closed");
  file_ = -1;
  if (problem_.empty() && std::rename(temporary_.c_str(), target_.c_str()) != 0) Fail("put in place");
  if (problem_.empty())
    SyncFolder();
  else
    unlink(temporary_.c_str());
  return problem_;
}

std::string WriteFileAtomically(const std::string& path, const void* data, std::uint64_t size) {
  AtomicFile file(path);
  file.Write(data, size);
  return file.Commit();
}

}  // namespace ovhost

trFileResult trWriteWholeFile(const trString& path, const void* data, std::size_t size) {
  ovhost::AtomicFile file(path);
  if (!file.Problem().empty()) return trFileResult::kNotOpened;
  file.Write(data, size);
  return file.Commit().empty() ? trFileResult::kWritten : trFileResult::kNotWritten;
}
