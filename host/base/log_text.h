// Text from anywhere made fit for a terminal or a line of a log.
#pragma once

#include <string>
#include <string_view>

#include "core/api.h"

namespace ovhost {

/// The text, or about `limit` bytes of it, on one line. What would steer a terminal or change the direction
/// of what stands beside it is spelled out (\n, \x1b, \u202e), as are bytes that aren't UTF-8. Thread-safe.
OV_API std::string PrintableText(std::string_view text, std::size_t limit = std::string_view::npos);

/// The same text as a string of JSON, quotes included; what isn't UTF-8 is replaced by U+FFFD.
OV_API std::string QuotedForJson(std::string_view text, std::size_t limit);

}  // namespace ovhost
