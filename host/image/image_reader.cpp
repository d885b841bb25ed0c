// The program's end of the picture reader, and the pictures that are in memory.
#include "host/image/image_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

#include "host/base/library_folder.h"
#include "host/base/memory.h"
#include "host/image/codec/reader_protocol.h"

extern char** environ;

namespace ovhost {
namespace {

/// Longer than the largest picture takes from a slow disc; who needs more hangs.
constexpr int kPatienceMilliseconds = 600000;

/// A running reader process; started when first asked, and again after it died. One thread at a time.
class Reader {
 public:
  ~Reader() { Stop(); }

  DecodedImage Read(const std::string& path, bool keepNotFinite, std::string& problem) {
    if (path.size() >= kMaxReaderPath) return problem = "the path is too long", DecodedImage();
    if (socket_ < 0 && !Start(problem)) return {};
    ReaderRequest request;
    request.freeMemory = FreeMemory();
    request.keepNotFinite = keepNotFinite;
    std::memcpy(request.path, path.data(), path.size());
    ReaderAnswer answer;
    int memory = -1;
    if (send(socket_, &request, sizeof request, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof request) ||
        !Receive(answer, memory)) {
      Stop();
      problem = "the file is damaged in a way that its reader doesn't survive";
      return {};
    }
    DecodedImage image;
    if (!answer.isRead) {
      answer.problem[sizeof answer.problem - 1] = 0;
      problem = answer.problem;
    } else if (!Map(answer, memory, image)) {
      problem = "there is no memory for its pixels";
    }
    if (memory >= 0) close(memory);
    return image;
  }

 private:
  bool Start(std::string& problem) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
      return problem = std::string("the picture reader can't be reached: ") + std::strerror(errno), false;
    const std::string program = (LibraryFolder() / "ovimage_reader").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], kReaderSocket);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    const int failed = posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failed != 0) {
      close(ends[0]);
      return problem = program + ": can't be started: " + std::strerror(failed), false;
    }
    socket_ = ends[0];
    return true;
  }

  void Stop() {
    if (socket_ < 0) return;
    close(socket_);
    socket_ = -1;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

  bool Receive(ReaderAnswer& answer, int& memory) {
    pollfd waiting{socket_, POLLIN, 0};
    int ready;
    do ready = poll(&waiting, 1, kPatienceMilliseconds);
    while (ready < 0 && errno == EINTR);
    if (ready <= 0) return false;

    iovec part{&answer, sizeof answer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t received = recvmsg(socket_, &message, MSG_CMSG_CLOEXEC);
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header))
      if (header->cmsg_type == SCM_RIGHTS) std::memcpy(&memory, CMSG_DATA(header), sizeof memory);
    return received == static_cast<ssize_t>(sizeof answer);
  }

  /// The pixels where the reader left them; private, so that who writes to an image has it alone.
  static bool Map(const ReaderAnswer& answer, int memory, DecodedImage& image) {
    const std::int64_t channelBytes = answer.type == 2 ? 4 : answer.type == 0 ? 1 : 2;
    const auto length =
        static_cast<std::size_t>(std::int64_t{answer.width} * answer.height * answer.channels * channelBytes);
    struct stat status;
    if (memory < 0 || length == 0 || fstat(memory, &status) != 0 ||
        static_cast<std::size_t>(status.st_size) < length)
      return false;
    void* pixels = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE, memory, 0);
    if (pixels == MAP_FAILED) return false;
    image = {answer.width, answer.height, answer.channels, static_cast<trChannelType>(answer.type),
             std::shared_ptr<unsigned char>(static_cast<unsigned char*>(pixels),
                                            [length](unsigned char* at) { munmap(at, length); })};
    return true;
  }

  pid_t process_ = -1;
  int socket_ = -1;
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
Reader reader;

}  // namespace

DecodedImage ReadImageFile(const std::string& path, std::string& problem) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return problem = std::strerror(errno), DecodedImage();
  if (!S_ISREG(status.st_mode)) return problem = "it isn't a file", DecodedImage();
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
  DecodedImage image = reader.Read(path, false, problem);
  if (image.pixels) {
    KnownImage& entry = known[stamp];
    entry.pixels = image.pixels;
    entry.image = image;
    entry.image.pixels.reset();
  }
  return image;
}

DecodedImage ReadDataFile(const std::string& path, std::string& problem) {
  const std::lock_guard lock(mutex);
  return reader.Read(path, true, problem);
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
