// Whether what an encoder made is a whole picture.
#pragma once

#include <cstdint>
#include <string>

#include "core/api.h"

namespace ovhost {

/// Empty, or what is wrong with the bytes of a picture of that size that is to be called `path`: its header
/// is read back, and every part of it must be there. Encoders have reported success where they couldn't write
/// or seek. Thread-safe.
OV_API std::string EncodedProblem(const std::string& path, const void* data, std::uint64_t bytes, int width,
                                  int height);

}  // namespace ovhost
