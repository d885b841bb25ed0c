// Programs of our own that do what a damaged file may end, and talk over a socket that is their standard
// input and output.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace ovhost {

/// A running child, which ends with this. One thread at a time.
class ChildProcess {
 public:
  /// The program called `name` that lies beside the library.
  explicit ChildProcess(std::string name) : name_(std::move(name)) {}
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Empty, or why it doesn't run.
  std::string Start();
  /// How long Receive waits for a sign of life before it gives up; for ever where that isn't said.
  void SetPatience(double seconds);
  bool Send(const void* data, std::size_t size);
  bool Receive(void* data, std::size_t size);
  /// Whether a Receive ended for want of patience.
  bool WasTooSlow() const { return wasTooSlow_; }

 private:
  std::string name_;
  pid_t process_ = -1;
  int socket_ = -1;
  bool wasTooSlow_ = false;
};

}  // namespace ovhost
