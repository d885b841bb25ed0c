// How the program talks to the reader of picture files, a process of its own: readers of foreign files end
// their process on some damaged ones. Requests are paths; the answer is this record, and the pixels as a
// memory file that comes along with it.
#pragma once

#include <cstdint>

namespace ovhost {

/// The reader's end of the socket in its process.
inline constexpr int kReaderSocket = 3;
inline constexpr int kMaxReaderPath = 4096;

struct ReaderRequest {
  std::uint64_t freeMemory = 0;  ///< bytes that pixels may take
  std::int32_t keepNotFinite = 0;
  char path[kMaxReaderPath] = {};
};

struct ReaderAnswer {
  std::int32_t isRead = 0;
  std::int32_t width = 0, height = 0;
  std::int32_t channels = 0, type = 0;  ///< 1 to 4; a trChannelType
  std::int64_t notFinite = 0;           ///< channels that were NaN or infinite, and are 0 now unless kept
  char problem[256] = {};
};

}  // namespace ovhost
