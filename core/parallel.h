// Loops of node code over all cores.
#pragma once

#include <functional>

#include "core/api.h"

/// Calls work(i, slot) for every i below `count`, in any order and at once, and waits for all. `slot` is
/// below trMaxThreads(), and no two calls have the same one at a time, so it tells per-thread states apart.
/// Takes as many threads as the work in hand may (trNumCoresToUse). Thread-safe.
OV_API void trParallelFor(long count, const std::function<void(long index, unsigned slot)>& work);
