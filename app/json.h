// JSON answers of the subcommands.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace ovapp {

using Json = nlohmann::ordered_json;

/// As it is printed: in ASCII, for names may hold what steers a terminal, with a new line; bytes that aren't
/// UTF-8 are replaced. Indented by `indent` for each level, or on one line for -1.
inline std::string JsonText(const Json& json, int indent = 1) {
  return json.dump(indent, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace ovapp
