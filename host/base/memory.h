// How much memory there is to take.
#pragma once

#include <cstdint>

#include "core/api.h"

namespace ovhost {

/// Bytes that programs may still take; what the system's file cache would give back counts. Thread-safe.
OV_API std::uint64_t FreeMemory();

}  // namespace ovhost
