// Pictures from files, and those that are in memory.
#include "host/image/image_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "host/base/library_folder.h"
#include "host/base/memory.h"
#include "host/image/reader_process.h"

namespace ovhost {
namespace {

/// An ordinary picture takes less than a second; a large one gets more by its size.
constexpr double kPatienceSeconds = 20;

ReaderProcess& Reader() {
  static ReaderProcess reader((LibraryFolder() / "ovimage_reader").string(), kPatienceSeconds);
  return reader;
}

/// A picture file that is open.
class OpenPicture {
 public:
  /// False with the reason for what isn't a plain file, and for what its header says too much of.
  bool Open(const std::string& path, std::string& problem) {
    // Looked at first: to open a device may be to do something.
    if (stat(path.c_str(), &status_) != 0) return problem = std::strerror(errno), false;
    if (!S_ISREG(status_.st_mode)) return problem = "it isn't a file", false;
    picture_.file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (picture_.file < 0 || fstat(picture_.file, &status_) != 0)
      return problem = std::strerror(errno), false;
    // Another may have come in its place.
    if (!S_ISREG(status_.st_mode)) return problem = "it isn't a file", false;
    picture_.bytes = static_cast<std::uint64_t>(status_.st_size);
    return true;
  }
  OpenPicture() = default;
  ~OpenPicture() {
    if (picture_.file >= 0) close(picture_.file);
  }
  OpenPicture(const OpenPicture&) = delete;
  OpenPicture& operator=(const OpenPicture&) = delete;

  const struct stat& Status() const { return status_; }
  DecodedImage Read(const std::string& path, bool keepNotFinite, std::string& problem) {
    picture_.keepNotFinite = keepNotFinite;
    if (!ReadPictureHeader(PictureFileBytes(picture_.file, picture_.bytes), path, picture_.header, problem))
      return {};
    return Reader().Read(picture_, FreeMemory(), problem);
  }

 private:
  PictureFile picture_;
  struct stat status_ {};
};

/// What tells two states of a file apart.
struct FileStamp {
  dev_t device;
  ino_t inode;
  off_t length;
  std::int64_t changed;  ///< nanoseconds
  auto operator<=>(const FileStamp&) const = default;
};

struct KnownImage {
  DecodedImage image;  ///< without pixels
  std::weak_ptr<unsigned char> pixels;
};

std::mutex mutex;
std::map<FileStamp, KnownImage> known;

}  // namespace

DecodedImage ReadImageFile(const std::string& path, std::string& problem) {
  OpenPicture picture;
  if (!picture.Open(path, problem)) return {};
  const struct stat& status = picture.Status();
  const FileStamp stamp{status.st_dev, status.st_ino, status.st_size,
                        status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec};

  const std::lock_guard lock(mutex);
  std::erase_if(known, [](const auto& entry) { return entry.second.pixels.expired(); });
  if (const auto entry = known.find(stamp); entry != known.end())
    if (auto pixels = entry->second.pixels.lock()) {
      DecodedImage image = entry->second.image;
      image.pixels = std::move(pixels);
      return image;
    }
  DecodedImage image = picture.Read(path, false, problem);
  if (image.pixels) {
    KnownImage& entry = known[stamp];
    entry.pixels = image.pixels;
    entry.image = image;
    entry.image.pixels.reset();
  }
  return image;
}

DecodedImage ReadDataFile(const std::string& path, std::string& problem) {
  OpenPicture picture;
  if (!picture.Open(path, problem)) return {};
  const std::lock_guard lock(mutex);
  return picture.Read(path, true, problem);
}

std::int64_t ImageMemoryInUse() {
  constexpr std::int64_t kChannelBytes[] = {1, 2, 4, 2};
  const std::lock_guard lock(mutex);
  std::int64_t sum = 0;
  for (const auto& [stamp, entry] : known)
    if (!entry.pixels.expired())
      sum += std::int64_t{entry.image.width} * entry.image.height * entry.image.channels *
             kChannelBytes[static_cast<int>(entry.image.type)];
  return sum;
}

}  // namespace ovhost
