// How much memory the work in hand may take.
#pragma once

#include <cstdint>

#include "core/api.h"
#include "core/string.h"

// All of these are thread-safe.

/// Bytes that the render in hand may take for what it makes; outside of a render, three quarters of what is
/// free.
OV_API std::uint64_t trMemoryBudget();
/// What a renderer takes for so many particles of a plain instancer, besides what the inflator keeps.
OV_API std::uint64_t trBytesOfCopies(std::uint64_t copies);
/// Ends work that can't fit: reports as an error that what is called `name` would take so much, and lets the
/// render in hand end as one that reached its memory limit.
OV_API void trRefuseCopies(const trString& name, std::uint64_t copies, std::uint64_t bytes);

/// "2 041 332".
OV_API trString trCountText(std::uint64_t count);
