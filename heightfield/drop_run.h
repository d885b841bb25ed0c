// A run of drops by worker threads, watched by the thread that asked for it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "core/random.h"
#include "heightfield/drop_settings.h"

/// Tells how far a run is, 0 to 1; false stops it.
using DropReport = std::function<bool(float fraction)>;

/// Shares `drops` drops out to `workers` threads, worker i with generator i; a remainder isn't walked. One
/// worker gives the same bytes whenever and wherever it runs. Reports every 10 ms in the calling thread.
/// False when it was stopped; what was done stays. Throws when a thread can't be started or a worker runs out
/// of memory.
bool RunDrops(const DropField& field, std::vector<trMersenneTwister>& generators, int workers,
              std::int64_t drops, const DropReport& report);
