// Changes of parameters from a JSON text.
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/session/session.h"

namespace ovhost {
namespace {

using Json = nlohmann::json;

[[noreturn]] void Refuse(const std::string& source, const char* what) {
  throw SessionError(SessionError::kBadRequest, source + ": " + what);
}

/// A value in the project file's spelling: lists become numbers with blanks between.
std::string Spelled(const Json& value, const std::string& source) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number()) return value.dump();
  constexpr const char* kValues = "a value is a text, a number, true, false or a list of numbers";
  if (!value.is_array()) Refuse(source, kValues);
  std::string text;
  for (const Json& element : value) {
    if (!element.is_number()) Refuse(source, kValues);
    if (!text.empty()) text += ' ';
    text += element.dump();
  }
  return text;
}

}  // namespace

void Session::AssignJson(const std::string& text, const std::string& source) const {
  // Anything deeper than a list in a node's object is no value; it isn't even read.
  constexpr int kDeepest = 3;
  bool isDeep = false;
  const Json json = Json::parse(
      text,
      [&isDeep](int depth, Json::parse_event_t, Json&) {
        isDeep |= depth > kDeepest;
        return depth <= kDeepest;
      },
      false);
  if (!json.is_object())
    throw SessionError(SessionError::kInvalidProject, source + ": not a JSON object of node.param and value");
  if (isDeep) Refuse(source, "lists and objects are nested deeper than values are");
  for (const auto& [target, value] : json.items()) {
    if (!value.is_object()) {
      Assign(target, Spelled(value, source));
      continue;
    }
    for (const auto& [param, inner] : value.items()) Assign(target + "." + param, Spelled(inner, source));
  }
}

void Session::AssignJsonFile(const std::string& path) const {
  std::stringstream text;
  std::ifstream in(path);
  if (in) text << in.rdbuf();
  if (!in) throw SessionError(SessionError::kInvalidProject, path + ": can't be read");
  AssignJson(text.str(), path);
}

}  // namespace ovhost
