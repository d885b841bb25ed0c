// Signal handlers of long work.
#include "app/signals.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>

namespace ovapp {
namespace {

constexpr std::initializer_list<int> kStops = {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGXCPU};

std::atomic<ovhost::RenderControl*> running{nullptr};
static_assert(std::atomic<ovhost::RenderControl*>::is_always_lock_free &&
                  std::atomic<bool>::is_always_lock_free,
              "handlers may touch nothing that locks");
volatile sig_atomic_t stopSignal = 0;

void OnWriteNow(int) {
  if (ovhost::RenderControl* control = running) control->WriteNow();
}

void OnStop(int signal) {
  // A closed terminal is told of twice, and a spent processor every second: who insists does so by hand.
  const bool isInsisting = stopSignal != 0 && signal != SIGHUP && signal != SIGXCPU;
  ovhost::RenderControl* const control = running;
  if (!control || isInsisting) _exit(128 + signal);
  if (stopSignal == 0) stopSignal = signal;
  control->Cancel();
}

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

bool IsIgnored(int signal) {
  struct sigaction present = {};
  return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

}  // namespace

void InstallSignals() { Handle(SIGUSR1, OnWriteNow); }

int StopSignal() { return stopSignal; }

RenderSignals::RenderSignals(ovhost::RenderControl& control) {
  running = &control;
  for (const int signal : kStops)
    if (signal != SIGHUP || !IsIgnored(signal)) Handle(signal, OnStop);
}

RenderSignals::~RenderSignals() {
  for (const int signal : kStops) Handle(signal, SIG_IGN);
  running = nullptr;
}

}  // namespace ovapp
