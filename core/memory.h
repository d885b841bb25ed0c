// How much memory work in hand may take.
#pragma once

#include <cstdint>

#include "core/api.h"

/// Bytes that a node may ask for at once: three quarters of what the process can still have. Thread-safe.
OV_API std::uint64_t trMemoryLeft();
