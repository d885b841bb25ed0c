// Console lines and the terminal's bell.
#include "host/base/console.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <mutex>

#include "core/messages.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Bells closer together than this are one.
constexpr auto kShortestPause = std::chrono::milliseconds(200);

std::mutex turn;
ovhost::Beeper beeper = nullptr;
void* beeperContext = nullptr;

/// Rings where somebody sits at a terminal: in a file the bell would be a stray character.
void RingBell() {
  static Clock::time_point last;
  const Clock::time_point now = Clock::now();
  if (now - last < kShortestPause || !isatty(STDERR_FILENO)) return;
  last = now;
  std::fputc('\a', stderr);
}

}  // namespace

void trOutMsg(const trString& text) {
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != trString::npos; begin = end + 1)
    trPrintMessage(text.substr(begin, end - begin));
  trPrintMessage(text.substr(begin));
}

void trBeep() {
  const std::lock_guard lock(turn);
  if (beeper)
    beeper(beeperContext);
  else
    RingBell();
}

namespace ovhost {

void SetBeeper(Beeper newBeeper, void* context) {
  const std::lock_guard lock(turn);
  beeper = newBeeper;
  beeperContext = context;
}

}  // namespace ovhost
