// Signal handlers of a render.
#include "app/signals.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace ovapp {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGUSR1};

std::atomic<ovhost::RenderControl*> running{nullptr};
static_assert(std::atomic<ovhost::RenderControl*>::is_always_lock_free &&
                  std::atomic<bool>::is_always_lock_free,
              "handlers may touch nothing that locks");
volatile sig_atomic_t stopSignal = 0;
struct sigaction previous[3];

void OnWriteNow(int) {
  if (ovhost::RenderControl* control = running) control->writeNow = true;
}

void OnStop(int signal) {
  stopSignal = signal;
  ovhost::RenderControl* control = running;
  if (!control || control->stop.exchange(true)) _exit(128 + signal);
}

}  // namespace

int StopSignal() { return stopSignal; }

RenderSignals::RenderSignals(ovhost::RenderControl& control) {
  running = &control;
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int i = 0; i < 3; ++i) {
    action.sa_handler = kSignals[i] == SIGUSR1 ? OnWriteNow : OnStop;
    sigaction(kSignals[i], &action, &previous[i]);
  }
}

RenderSignals::~RenderSignals() {
  for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &previous[i], nullptr);
  running = nullptr;
}

}  // namespace ovapp
