// Files that are there whole or not at all.
#pragma once

#include <cstddef>

#include "core/string.h"

/// How a write went.
enum class FileResult { kWritten, kNotOpened, kNotWritten };

/// Writes a file beside its target, flushes it and puts it in the target's place; on failure whatever was
/// there stays.
FileResult WriteWholeFile(const trString& path, const void* data, std::size_t size);
