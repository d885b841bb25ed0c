// A run of drops by worker threads, watched by the thread that asked for it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "core/random.h"
#include "heightfield/drop_settings.h"

/// Tells how far a run is, 0 to 1; false stops it.
using DropReport = std::function<bool(float fraction)>;

/// In which order the drops of a run are walked.
enum class DropOrder {
  kRepeatable,  ///< one after another by the first generator: the same bytes whenever and wherever
  kAny          ///< by all threads at once, each with a generator of its own; one thread is repeatable
};

/// Walks `drops` drops on `threads` threads, for each of which there is a generator. In any order they are
/// shared out evenly, and a remainder isn't walked. Reports every 10 ms in the calling thread. False when it
/// was stopped; what was done stays. Throws when a thread can't be started or a worker runs out of memory.
bool RunDrops(const DropField& field, DropOrder order, int threads,
              std::vector<trMersenneTwister>& generators, std::int64_t drops, const DropReport& report);
