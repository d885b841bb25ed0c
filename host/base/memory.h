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

/// Thrown where what was asked for can't fit, by who has reported that.
class ToldMemoryLimit : public std::exception {
 public:
  const char* what() const noexcept override { return "the memory limit is too small"; }
};

/// "310 MB", in units of 1000, with at least two digits. Thread-safe.
OV_API std::string BytesText(std::uint64_t bytes);
/// "2 041 332 copies, 310 MB; budget 12 GB". Thread-safe.
OV_API std::string CopiesText(std::uint64_t copies, std::uint64_t bytes, std::uint64_t budget);

/// What the control groups of the process leave, the greatest number where they set no limit. `proc` is the
/// folder of /proc/self. Thread-safe.
OV_API std::uint64_t ControlGroupMemory(const std::string& proc);

}  // namespace ovhost
