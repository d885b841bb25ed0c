// How the program talks to the reader of picture files, a process of its own: readers of foreign files end
// their process on some damaged ones. A request brings the open file along; the answer is a record that
// brings the pixels as a memory file.
#pragma once

#include <cstdint>

namespace ovhost {

/// The reader's end of the socket in its process.
inline constexpr int kReaderSocket = 3;

struct ReaderRequest {
  std::uint64_t mostBytes = 0;  ///< that pixels may take
  std::int32_t keepNotFinite = 0;
  char format[28] = {};  ///< as the library of picture formats calls it
};

struct ReaderAnswer {
  std::int32_t isRead = 0;
  std::int32_t width = 0, height = 0;
  std::int32_t channels = 0, type = 0;  ///< 1 to 4; a trChannelType
  std::int64_t notFinite = 0;           ///< channels that were NaN or infinite, and are 0 now unless kept
  char problem[256] = {};
};

}  // namespace ovhost
