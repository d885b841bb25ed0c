// Long tables, worked on in blocks by all cores.
#pragma once

#include <functional>

/// Calls work(begin, end) for all of 0 to `count`, in blocks of `block`, on as many threads as the session
/// may take; what the work throws is thrown.
void ForBlocks(long count, long block, const std::function<void(long begin, long end)>& work);
