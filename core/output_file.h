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

/// Adds a line to the end of a text file, which is made where there is none. The file is plain, and neither
/// hidden nor a program: what is written may come from a project that anybody has made, and mustn't become
/// part of a script or of a user's settings. Lines from several threads and programs stay whole. Thread-safe.
OV_API trFileResult trAppendLine(const trString& path, const trString& line);
