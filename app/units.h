// Amounts with units, as the command line takes them and messages tell them.
#pragma once

#include <string>

namespace ovapp {

/// A number of bytes with an optional suffix K, M, G or T. Throws a Failure.
unsigned long long ParseBytes(const std::string& text);

/// A number of seconds with an optional suffix s, m or h. Throws a Failure.
double ParseSeconds(const std::string& text);

/// The i-th of n bands of rows, counted from 1 at the top.
struct Tile {
  int number = 1, count = 1;
};
/// A tile such as "2/4". Throws a Failure.
Tile ParseTile(const std::string& text);

/// "1 sample", "2 samples".
std::string Counted(long count, const char* what);

/// Seconds for people: "0.7 s", "15 s", "3 min 20 s", "2 h 05 min".
std::string DurationText(double seconds);

}  // namespace ovapp
