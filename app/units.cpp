// Amounts with units.
#include "app/units.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "app/app.h"

namespace ovapp {
namespace {

/// A positive number and its suffix, or a Failure that names what the text ought to be.
double NumberWithUnit(const std::string& text, std::string& unit, const char* what) {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || !std::isfinite(value) || value <= 0)
    throw Failure{kBadUsage, "\"" + text + "\" is not " + what};
  unit.assign(next, end);
  return value;
}

}  // namespace

unsigned long long ParseBytes(const std::string& text) {
  constexpr const char* kWhat = "an amount of memory such as 800M or 4G";
  std::string unit;
  const double value = NumberWithUnit(text, unit, kWhat);
  static constexpr const char* kUnits[] = {"", "K", "M", "G", "T"};
  if (unit.size() == 2 && unit[1] == 'B') unit.pop_back();
  for (int i = 0; i < 5; ++i) {
    const double bytes = std::ldexp(value, 10 * i);
    if (unit == kUnits[i] && bytes >= 1 && bytes < 1e18) return static_cast<unsigned long long>(bytes);
  }
  throw Failure{kBadUsage, "\"" + text + "\" is not " + kWhat};
}

double ParseSeconds(const std::string& text) {
  constexpr const char* kWhat = "a time such as 90, 90s, 5m or 2h";
  std::string unit;
  const double value = NumberWithUnit(text, unit, kWhat);
  if (unit.empty() || unit == "s") return value;
  if (unit == "m") return value * 60;
  if (unit == "h") return value * 3600;
  throw Failure{kBadUsage, "\"" + text + "\" is not " + kWhat};
}

Tile ParseTile(const std::string& text) {
  Tile tile;
  const char* const end = text.data() + text.size();
  const auto number = std::from_chars(text.data(), end, tile.number);
  if (number.ec == std::errc() && number.ptr < end && *number.ptr == '/') {
    const auto count = std::from_chars(number.ptr + 1, end, tile.count);
    if (count.ec == std::errc() && count.ptr == end && tile.number >= 1 && tile.number <= tile.count)
      return tile;
  }
  throw Failure{kBadUsage, "\"" + text + "\" is not a tile such as 2/4"};
}

std::string Counted(long count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string DurationText(double seconds) {
  const long whole = seconds > 0 && seconds < 1e9 ? std::lround(seconds) : 0;
  char text[64];
  if (whole < 10)
    std::snprintf(text, sizeof text, "%.1f s", std::max(seconds, 0.0));
  else if (whole < 60)
    std::snprintf(text, sizeof text, "%ld s", whole);
  else if (whole < 3600)
    std::snprintf(text, sizeof text, "%ld min %02ld s", whole / 60, whole % 60);
  else
    std::snprintf(text, sizeof text, "%ld h %02ld min", whole / 3600, whole / 60 % 60);
  return text;
}

}  // namespace ovapp
