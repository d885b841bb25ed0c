// Frame ranges and picture names with frame numbers in them.
#pragma once

#include <string>
#include <vector>

#include "core/api.h"

namespace ovhost {

/// The frames that "1-10,20-40x5" spells, in its order and each once; ranges may fall. Throws a SessionError
/// for anything else, and for more than a million frames. Thread-safe.
OV_API std::vector<long> ParseFrames(const std::string& text);

/// Whether the file name has a place for a frame number: a run of '#' or a printf field such as %04d.
/// Thread-safe.
OV_API bool HasFramePlace(const std::string& path);

/// The path with the frame number in every such place of its file name. Thread-safe.
OV_API std::string FramePath(const std::string& path, long frame);

}  // namespace ovhost
