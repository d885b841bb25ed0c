#include "host/base/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/base/library_folder.h"

extern char** environ;

namespace ovhost {

ChildProcess::~ChildProcess() {
  if (socket_ >= 0) close(socket_);
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

std::string ChildProcess::Start() {
  int ends[2];
  const std::string program = (LibraryFolder() / name_).string();
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    return program + ": can't be reached: " + std::strerror(errno);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
  const int failed = posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  socket_ = ends[0];
  if (failed == 0) return {};
  process_ = -1;
  return program + ": can't be started: " + std::strerror(failed);
}

void ChildProcess::SetPatience(double seconds) {
  timeval time{};
  time.tv_sec = static_cast<time_t>(seconds) + 1;
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
}

bool ChildProcess::Send(const void* data, std::size_t size) {
  const auto* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = send(socket_, at, size, MSG_NOSIGNAL);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    at += put;
    size -= static_cast<std::size_t>(put);
  }
  return true;
}

bool ChildProcess::Receive(void* data, std::size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = recv(socket_, at, size, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) wasTooSlow_ = true;
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace ovhost
