// The trial of a foreign module, in a child process that may crash, end or hang.
#include "host/node/module_trial.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

#include "host/node/module_loader.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

/// What the child tells: what it is about to do, then how it ended. Short enough to go through a pipe at
/// once.
struct Message {
  enum Kind : int { kStage, kAccepted, kRefused } kind;
  char text[1000];
};

Message MakeMessage(Message::Kind kind, const std::string& text) {
  Message message{};
  message.kind = kind;
  text.copy(message.text, sizeof message.text - 1);
  return message;
}

class Child {
 public:
  Child(const std::string& path, int pipe) : path_(path), pipe_(pipe) {}

  /// Nothing of the module's is heard or seen of, and nothing outlives the program.
  static void Prepare(pid_t parent) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(0);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int file = 0; file < 3; ++file) dup2(nothing, file);
    std::set_terminate(std::abort);
  }

  void Run() const {
    std::string problem;
    bool isAccepted = false;
    try {
      isAccepted = Try(problem);
    } catch (const std::exception& exception) {
      problem = std::string("one of the module's classes threw an exception: ") + exception.what();
    } catch (...) {
      problem = "one of the module's classes threw an exception";
    }
    Send(isAccepted ? Message::kAccepted : Message::kRefused, problem);
  }

 private:
  bool Try(std::string& problem) const {
    Send(Message::kStage, "while it was loaded");
    trPluginStartupInfo info;
    if (!LoadModule(path_, info, problem) || !EnterIntoPool(info, problem)) return false;
    for (const CatalogueEntry& entry : info.entries) {
      Send(Message::kStage, "while it made a node of its class " + entry.className);
      trBase* const node = entry.create();
      if (!node) return problem = "the module makes no node of its class " + entry.className, false;
      for (long i = 0; i < node->NumParams(); ++i) static_cast<void>(node->ParamName(i));
      entry.destroy(node);
    }
    Send(Message::kStage, "while it was unloaded");
    dlclose(info.library);
    return true;
  }

  void Send(Message::Kind kind, const std::string& text) const {
    const Message message = MakeMessage(kind, text);
    while (write(pipe_, &message, sizeof message) < 0 && errno == EINTR) {
    }
  }

  const std::string& path_;
  int pipe_;
};

using Time = std::chrono::steady_clock::time_point;

/// Waits for something to read; false after the deadline.
bool WaitFor(int file, Time deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd waiting{file, POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

/// Waits for the end of a process, whose status stays to be asked for; false after the deadline.
bool WaitForEnd(pid_t process, Time deadline) {
  for (;;) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid != 0)
      return true;
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

/// What the child told until it was done, ended or the time was up.
struct Course {
  Message last = MakeMessage(Message::kStage, "while it was loaded");
  bool isLate = false;
};

Course Follow(pid_t child, int pipe, int seconds) {
  const Time deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  Course course;
  while (course.last.kind == Message::kStage) {
    if (!WaitFor(pipe, deadline)) return course.isLate = true, course;
    Message message;
    const ssize_t got = read(pipe, &message, sizeof message);
    if (got < 0 && errno == EINTR) continue;
    if (got != static_cast<ssize_t>(sizeof message)) {
      // It tells no more: it has ended, or closed its end.
      course.isLate = !WaitForEnd(child, deadline);
      return course;
    }
    message.text[sizeof message.text - 1] = 0;
    course.last = message;
  }
  return course;
}

std::string ProblemOf(const Course& course, int status, int seconds) {
  if (course.last.kind == Message::kRefused) return course.last.text;
  const std::string stage = std::string(" ") + course.last.text;
  if (course.isLate)
    return "the module didn't come to an end within " + std::to_string(seconds) + " s" + stage;
  if (WIFSIGNALED(status))
    return "the module crashed" + stage + " (signal " + std::to_string(WTERMSIG(status)) + ")";
  return "the module ended the process" + stage;
}

}  // namespace

bool SurvivesTrial(const std::string& path, int seconds, std::string& problem) {
  int ends[2];
  const pid_t parent = getpid();
  if (pipe2(ends, O_CLOEXEC) != 0)
    return problem = std::string("the module can't be tried out: ") + std::strerror(errno), false;
  const pid_t child = fork();
  if (child == 0) {
    Child::Prepare(parent);
    Child(path, ends[1]).Run();
    _exit(0);
  }
  const int failure = errno;
  close(ends[1]);
  if (child < 0) {
    close(ends[0]);
    return problem = std::string("the module can't be tried out: ") + std::strerror(failure), false;
  }
  setpgid(child, child);
  const Course course = Follow(child, ends[0], seconds);
  close(ends[0]);
  // Whatever it has started goes with it.
  kill(-child, SIGKILL);
  kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (course.last.kind == Message::kAccepted) return true;
  problem = ProblemOf(course, status, seconds);
  return false;
}

}  // namespace ovhost
