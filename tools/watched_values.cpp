// Tokens of messages.
#include "tools/watched_values.h"

#include <locale>
#include <sstream>
#include <string_view>

namespace {

constexpr std::size_t kTokenLength = 5;

template <typename T>
trString TextOf(const char* label, const std::optional<T>& value, int component) {
  return value ? label + NumberText((*value)[component]) : trString();
}

template <typename T>
trString AllOf(const char* label, const std::optional<T>& value) {
  if (!value) return {};
  return label + NumberText((*value)[0]) + " " + NumberText((*value)[1]) + " " + NumberText((*value)[2]);
}

/// Appends what a token stands for; false where it is none.
bool AppendToken(trString& out, std::string_view token, const trString& name, const WatchedValues& values) {
  if (token == "$NAME")
    out += name;
  else if (token == "$NEWL")
    out += '\n';
  else if (token == "$COL#")
    out += AllOf("rgb = ", values.colour);
  else if (token == "$COLR")
    out += TextOf("r=", values.colour, 0);
  else if (token == "$COLG")
    out += TextOf("g=", values.colour, 1);
  else if (token == "$COLB")
    out += TextOf("b=", values.colour, 2);
  else if (token == "$SCAL")
    out += values.scalar ? NumberText(*values.scalar) : trString();
  else if (token == "$VEC#")
    out += AllOf("xyz= ", values.vector);
  else if (token == "$VECX")
    out += TextOf("x=", values.vector, 0);
  else if (token == "$VECY")
    out += TextOf("y=", values.vector, 1);
  else if (token == "$VECZ")
    out += TextOf("z=", values.vector, 2);
  else
    return false;
  return true;
}

}  // namespace

trString NumberText(double value) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream << value;
  return stream.str();
}

trString WithValues(const trString& message, const trString& name, const WatchedValues& values) {
  trString out;
  const std::string_view text(message);
  for (std::size_t at = 0; at < text.size();) {
    if (AppendToken(out, text.substr(at, kTokenLength), name, values)) {
      at += kTokenLength;
    } else {
      out += text[at++];
    }
  }
  return out;
}
