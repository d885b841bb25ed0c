// How much memory there is to take.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "core/api.h"

namespace ovhost {

/// Bytes that this process may still take: what the system has left and could have back from its file cache,
/// within the limits of the process and of its control groups. Thread-safe.
OV_API std::uint64_t FreeMemory();

/// Whether so little is left that a library which couldn't start, or start a thread, failed for that.
/// Thread-safe.
OV_API bool IsMemoryShort();
/// Whether an exception was thrown for want of memory, as far as can be told. Thread-safe.
OV_API bool IsForWantOfMemory(const std::exception& problem);

/// What the control groups of the process leave, the greatest number where they set no limit. `proc` is the
/// folder of /proc/self. Thread-safe.
OV_API std::uint64_t ControlGroupMemory(const std::string& proc);

}  // namespace ovhost
