// Frame ranges and picture names with frame numbers in them.
#pragma once

#include <string>
#include <vector>

namespace ovapp {

/// The frames that "1-10,20-40x5" spells, in its order and each once; ranges may fall. Throws a Failure for
/// anything else, and for more than a million frames.
std::vector<long> ParseFrames(const std::string& text);

/// Whether the file name has a place for a frame number: a run of '#' or a printf field such as %04d.
bool HasFramePlace(const std::string& path);

/// The path with the frame number in every such place of its file name.
std::string FramePath(const std::string& path, long frame);

/// A number of bytes with an optional suffix K, M, G or T. Throws a Failure.
unsigned long long ParseBytes(const std::string& text);

/// A number of seconds with an optional suffix s, m or h. Throws a Failure.
double ParseSeconds(const std::string& text);

/// Seconds for people: "0.7 s", "15 s", "3 min 20 s", "2 h 05 min".
std::string DurationText(double seconds);

}  // namespace ovapp
