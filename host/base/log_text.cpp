// Escapes for log lines.
#include "host/base/log_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace ovhost {
namespace {

/// The character at the front of a text that isn't empty, and its length; length 0 where the bytes aren't
/// UTF-8 (RFC 3629).
struct Character {
  char32_t code = 0;
  std::size_t length = 0;
};

Character FirstCharacter(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return {byte(0), 1};
  const std::size_t length = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
  if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < length) return {};
  char32_t code = byte(0) & (0x7f >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return {};
    code = code << 6 | (byte(i) & 0x3f);
  }
  static constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kLeast[length] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return {};
  return {code, length};
}

/// Control characters, line and paragraph separators, and those that set the direction of writing (Unicode
/// Standard Annex 9).
bool MustBeSpelled(char32_t c) {
  return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x061c || c == 0x200e || c == 0x200f ||
         (c >= 0x2028 && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069) || c == 0xfeff;
}

std::string Hexadecimal(const char* format, unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Spelled(char32_t c) {
  switch (c) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return Hexadecimal(c < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
  }
}

/// Appends the text, each character by itself or as `escape` has it, until `out` is `limit` bytes long.
/// `escape` gets the length 0 for a byte that isn't UTF-8, and returns nothing for what may stand.
template <typename Escape>
void AppendEscaped(std::string& out, std::string_view text, std::size_t limit, const Escape& escape) {
  while (!text.empty()) {
    if (out.size() >= limit) {
      out += "... (" + std::to_string(text.size()) + " bytes more)";
      return;
    }
    const Character c = FirstCharacter(text);
    const std::size_t length = std::max<std::size_t>(c.length, 1);
    const std::string escaped = escape(c, static_cast<unsigned char>(text[0]));
    if (escaped.empty())
      out += text.substr(0, length);
    else
      out += escaped;
    text.remove_prefix(length);
  }
}

}  // namespace

std::string PrintableText(std::string_view text, std::size_t limit) {
  std::string out;
  AppendEscaped(out, text, limit, [](const Character& c, unsigned char byte) -> std::string {
    if (c.length == 0) return Hexadecimal("\\x%02x", byte);
    return MustBeSpelled(c.code) ? Spelled(c.code) : std::string();
  });
  return out;
}

std::string QuotedForJson(std::string_view text, std::size_t limit) {
  std::string out = "\"";
  AppendEscaped(out, text, limit, [](const Character& c, unsigned char) -> std::string {
    if (c.length == 0) return "\\ufffd";
    if (c.code == '"' || c.code == '\\') return {'\\', static_cast<char>(c.code)};
    return MustBeSpelled(c.code) ? Hexadecimal("\\u%04x", static_cast<unsigned>(c.code)) : std::string();
  });
  return out + '"';
}

}  // namespace ovhost
