// Reads points as CSV or JSON lines.
#include "host/session/points.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/session/session_error.h"

namespace ovhost {
namespace {

bool IsSeparator(char c) { return c == ',' || c == ';' || c == ' ' || c == '\t' || c == '\r'; }

/// All numbers of a line; false where something else stands in it.
bool ReadNumbers(const std::string& line, std::vector<double>& numbers) {
  const char* at = line.data();
  const char* const end = at + line.size();
  for (;;) {
    while (at < end && IsSeparator(*at)) ++at;
    if (at == end) return true;
    if (*at == '+') ++at;
    double value = 0;
    const auto [next, error] = std::from_chars(at, end, value);
    if (error != std::errc() || (next < end && !IsSeparator(*next))) return false;
    numbers.push_back(value);
    at = next;
  }
}

bool AppendNumbers(const nlohmann::json& json, std::vector<double>& numbers) {
  if (!json.is_array()) return false;
  for (const auto& element : json) {
    if (!element.is_number()) return false;
    numbers.push_back(element.get<double>());
  }
  return true;
}

/// The numbers of an object's members of these names; false where one is missing or isn't a number.
bool AppendMembers(const nlohmann::json& json, std::initializer_list<const char*> names,
                   std::vector<double>& numbers) {
  for (const char* name : names) {
    const auto found = json.find(name);
    if (found == json.end() || !found->is_number()) return false;
    numbers.push_back(found->get<double>());
  }
  return true;
}

bool ReadJson(const std::string& line, std::vector<double>& numbers) {
  const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
  if (json.is_array()) return AppendNumbers(json, numbers);
  if (!json.is_object()) return false;
  if (json.contains("x"))
    return AppendMembers(json, {"x", "y", "z"}, numbers) &&
           (!json.contains("nx") || AppendMembers(json, {"nx", "ny", "nz"}, numbers));
  if (!json.contains("point") || !AppendNumbers(json["point"], numbers)) return false;
  return numbers.size() == 3 && (!json.contains("normal") || AppendNumbers(json["normal"], numbers));
}

/// A point of three numbers, or of six with a normal that has a direction.
bool MakePoint(const std::vector<double>& numbers, EvalPoint& point) {
  if (numbers.size() != 3 && numbers.size() != 6) return false;
  for (const double number : numbers)
    if (!std::isfinite(number)) return false;
  point.position = {numbers[0], numbers[1], numbers[2]};
  if (numbers.size() == 3) return true;
  const trVector normal(numbers[3], numbers[4], numbers[5]);
  if (!(normal.Length() > 1e-12) || !std::isfinite(normal.Length())) return false;
  point.normal = Normalised(normal);
  return true;
}

bool IsHeading(const std::string& line) {
  return line.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_,; \t\r") ==
         std::string::npos;
}

}  // namespace

PointList ReadPoints(std::istream& in, const std::string& name) {
  PointList list;
  std::string line;
  for (long number = 1; std::getline(in, line); ++number) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    if (list.points.empty() && IsHeading(line)) continue;
    const bool isJson = line[first] == '[' || line[first] == '{';
    std::vector<double> numbers;
    EvalPoint point;
    if (!(isJson ? ReadJson(line, numbers) : ReadNumbers(line, numbers)) || !MakePoint(numbers, point))
      throw SessionError(
          SessionError::kFailed,
          name + ": line " + std::to_string(number) +
              ": not a point, which is x y z or x y z nx ny nz, all finite, the normal not zero");
    list.isJson = list.isJson || isJson;
    list.points.push_back(point);
  }
  if (in.bad()) throw SessionError(SessionError::kFailed, name + ": can't be read");
  return list;
}

}  // namespace ovhost
