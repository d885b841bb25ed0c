// Files that others name: plain ones of a bearable size, and nothing that waits for somebody.
#pragma once

#include <cstdint>
#include <string>

#include "core/api.h"

namespace ovhost {

/// Reads a whole file of at most `limit` bytes. False with the reason in `problem`; a pipe, a device or a
/// folder is refused, and not waited for. Thread-safe.
OV_API bool ReadPlainFile(const std::string& path, std::uint64_t limit, std::string& text,
                          std::string& problem);

/// Whether the path leads to a plain file, for libraries that open files themselves. Thread-safe.
OV_API bool IsPlainFile(const std::string& path, std::string& problem);

}  // namespace ovhost
