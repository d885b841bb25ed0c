// The program's end of the picture reader.
#include "host/image/reader_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "host/image/reader_answer.h"

extern char** environ;

namespace ovhost {
namespace {

/// Longer than its libraries take to load from the slowest disc.
constexpr double kStartSeconds = 120;

/// Bytes a second that the slowest disc and the slowest decoder get through: large pictures may take longer.
constexpr double kSlowestDisc = 4e6, kSlowestDecoder = 40e6;

double DisplayedBytes(const PictureHeader& header) {
  // Four floats at most for a pixel of the picture or of the window that it is shown in.
  return (static_cast<double>(header.width) * static_cast<double>(header.height) + header.displayArea) * 16;
}

/// Address space that a process has taken; 0 where that can't be told.
std::uint64_t AddressSpace(pid_t process) {
  const std::string path = "/proc/" + std::to_string(process) + "/statm";
  std::FILE* const file = std::fopen(path.c_str(), "re");
  if (!file) return 0;
  unsigned long long pages = 0;
  const bool isRead = std::fscanf(file, "%llu", &pages) == 1;
  std::fclose(file);
  return isRead ? pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

/// Seconds of processor time that a process has had.
double ProcessorSeconds(pid_t process) {
  clockid_t clock;
  timespec used{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

void SetLimit(pid_t process, __rlimit_resource what, double value) {
  rlimit limit;
  if (prlimit(process, what, nullptr, &limit) != 0 || value >= 9e18) return;
  const auto wanted = static_cast<rlim_t>(value);
  limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? wanted : std::min(wanted, limit.rlim_max);
  prlimit(process, what, &limit, nullptr);
}

/// Attributes of the new process: signals for the program's group, which Ctrl-C or a farm sends, aren't its
/// business; it goes when the program does.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2}) sigaddset(&blocked, signal);
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigmask(&attributes_, &blocked);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

/// No file of the program's but the socket, and nothing to talk to.
class SpawnFiles {
 public:
  explicit SpawnFiles(int socket) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, socket, kReaderSocket);
    for (int file = 0; file < kReaderSocket; ++file)
      posix_spawn_file_actions_addopen(&actions_, file, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions_, kReaderSocket + 1);
  }
  ~SpawnFiles() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnFiles(const SpawnFiles&) = delete;
  SpawnFiles& operator=(const SpawnFiles&) = delete;
  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

/// Sends a request with the open file.
bool SendRequest(int socket, const ReaderRequest& request, int file) {
  iovec part{const_cast<ReaderRequest*>(&request), sizeof request};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &file, sizeof file);
  ssize_t sent;
  do sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(sizeof request);
}

}  // namespace

ReaderProcess::ReaderProcess(std::string program, double patience)
    : program_(std::move(program)), patience_(patience) {}

ReaderProcess::~ReaderProcess() { Stop(); }

DecodedImage ReaderProcess::Read(const PictureFile& picture, std::uint64_t freeMemory, std::string& problem) {
  const PictureHeader& header = picture.header;
  const double least = static_cast<double>(header.width) * static_cast<double>(header.height) *
                       static_cast<double>(std::min<std::int64_t>(header.channels, 4) * header.channelBytes);
  if (least > static_cast<double>(freeMemory)) {
    problem = std::to_string(header.width) + " x " + std::to_string(header.height) +
              " pixels take more memory than there is";
    return {};
  }
  const auto mostBytes =
      static_cast<std::uint64_t>(std::min(DisplayedBytes(header), static_cast<double>(freeMemory)));
  if (!Send(picture, mostBytes, problem)) return {};
  ReaderAnswer answer;
  int file = -1;
  const double patience = Patience(picture);
  switch (ReceiveAnswer(socket_, patience, answer, file)) {
    case Received::kAnswer:
      break;
    case Received::kNothing:
      Stop();
      problem = "the file is damaged in a way that its reader doesn't survive";
      return {};
    case Received::kTooLate:
      Stop();
      problem = "its reader came to no end within " + std::to_string(std::lround(patience)) + " s";
      return {};
  }
  DecodedImage image = TakeAnswer(answer, file, mostBytes, problem);
  if (file >= 0) close(file);
  // A reader that lies is none to be asked again.
  if (answer.isRead && !image.pixels) Stop();
  return image;
}

bool ReaderProcess::Send(const PictureFile& picture, std::uint64_t mostBytes, std::string& problem) {
  ReaderRequest request;
  request.mostBytes = mostBytes;
  request.keepNotFinite = picture.keepNotFinite;
  std::snprintf(request.format, sizeof request.format, "%s", picture.header.format);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (socket_ < 0 && !Start(problem)) return false;
    Limit(picture, mostBytes);
    if (SendRequest(socket_, request, picture.file)) return true;
    Stop();
  }
  return problem = "the picture reader doesn't take requests", false;
}

double ReaderProcess::Patience(const PictureFile& picture) const {
  return patience_ + static_cast<double>(picture.bytes) / kSlowestDisc +
         picture.header.DecodedBytes() / kSlowestDecoder;
}

void ReaderProcess::Limit(const PictureFile& picture, std::uint64_t mostBytes) const {
  // What libraries and their threads take by themselves; what a picture takes in a decoder, such as the
  // coefficients of a progressive JPEG, two bytes a channel.
  constexpr double kLibraries = 1 << 30, kThread = 16 << 20, kTimesDecoded = 4;
  const double threads = std::max(1u, std::thread::hardware_concurrency());
  if (const std::uint64_t taken = AddressSpace(process_))
    SetLimit(process_, RLIMIT_AS,
             static_cast<double>(taken) + kLibraries + threads * kThread +
                 kTimesDecoded * picture.header.DecodedBytes() + 2 * static_cast<double>(mostBytes) +
                 2 * static_cast<double>(picture.bytes));
  SetLimit(process_, RLIMIT_CPU, std::ceil(ProcessorSeconds(process_) + Patience(picture) * threads));
}

bool ReaderProcess::Start(std::string& problem) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    return problem = std::string("the picture reader can't be reached: ") + std::strerror(errno), false;
  const SpawnFiles files(ends[1]);
  const SpawnAttributes attributes;
  char* arguments[] = {const_cast<char*>(program_.c_str()), nullptr};
  const int failed =
      posix_spawn(&process_, program_.c_str(), files.Get(), attributes.Get(), arguments, environ);
  close(ends[1]);
  if (failed != 0) {
    close(ends[0]);
    return problem = program_ + ": can't be started: " + std::strerror(failed), false;
  }
  socket_ = ends[0];
  // It tells when it has all libraries and has given up its rights.
  ReaderAnswer ready;
  int file = -1;
  const bool isReady = ReceiveAnswer(socket_, kStartSeconds, ready, file) == Received::kAnswer;
  if (file >= 0) close(file);
  if (isReady) return true;
  Stop();
  return problem = program_ + ": doesn't start", false;
}

void ReaderProcess::Stop() {
  if (socket_ < 0) return;
  close(socket_);
  socket_ = -1;
  kill(process_, SIGKILL);
  // A disc that hangs keeps it: then it is left to itself.
  constexpr int kMilliseconds = 2000;
  for (int waited = 0; waited < kMilliseconds && waitpid(process_, nullptr, WNOHANG) == 0; ++waited)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace ovhost
