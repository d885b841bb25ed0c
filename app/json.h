// JSON answers of the subcommands.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace ovapp {

using Json = nlohmann::ordered_json;

/// As it is printed: indented, with a new line; bytes that aren't UTF-8 are replaced.
inline std::string JsonText(const Json& json) {
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ovapp
