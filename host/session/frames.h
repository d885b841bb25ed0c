// Frame ranges and picture names with frame numbers in them.
#pragma once

#include <string>
#include <vector>

#include "core/api.h"

class juProject;

namespace ovhost {

/// The frames that "1-10,20-40x5" spells, in its order and each once; ranges may fall, "1..10" is one too,
/// and blanks may stand around commas. Throws a SessionError for anything else, and for more than a million
/// frames. Thread-safe.
OV_API std::vector<long> ParseFrames(const std::string& text);

/// All frames of the project. Throws a SessionError where there are none, or over a million.
OV_API std::vector<long> ProjectFrames(const juProject& project);

/// Whether the file name has a place for a frame number: a run of '#' or a printf field such as %04d.
/// Thread-safe.
OV_API bool HasFramePlace(const std::string& path);

/// The path with the frame number in every such place of its file name. Thread-safe.
OV_API std::string FramePath(const std::string& path, long frame);

}  // namespace ovhost
