// Files that nodes write.
#pragma once

#include <cstddef>

#include "core/api.h"
#include "core/string.h"

/// How a write went.
enum class trFileResult { kWritten, kNotOpened, kNotWritten };

/// Writes a file that is there whole or not at all: beside its target, flushed to disc and put in the
/// target's place. On failure whatever was there stays. Thread-safe.
OV_API trFileResult trWriteWholeFile(const trString& path, const void* data, std::size_t size);
