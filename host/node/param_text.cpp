// Parameter values as text: the project file's spelling, the same in every locale.
#include "host/node/param_text.h"

#include <charconv>
#include <cmath>

#include "host/node/node_data.h"

namespace ovhost {
namespace {

void AppendNumber(std::string& out, double value) {
  char buffer[32];
  out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

void AppendNumber(std::string& out, float value) {
  char buffer[32];
  out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

template <typename T>
std::string Joined(std::initializer_list<T> values) {
  std::string out;
  for (const T value : values) {
    if (!out.empty()) out += ' ';
    AppendNumber(out, value);
  }
  return out;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

const char* PastBlanks(const char* at, const char* end) {
  while (at < end && IsBlank(*at)) ++at;
  return at;
}

/// Exactly `count` finite numbers with blanks or a comma between, and nothing else.
template <typename T>
bool ReadNumbers(const std::string& text, T* out, int count) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (int i = 0; i < count; ++i) {
    at = PastBlanks(at, end);
    if (i > 0 && at < end && *at == ',') at = PastBlanks(at + 1, end);
    if (at + 1 < end && *at == '+' && at[1] != '-') ++at;
    const auto [next, error] = std::from_chars(at, end, out[i]);
    if (error != std::errc()) return false;
    if constexpr (std::is_floating_point_v<T>)
      if (!std::isfinite(out[i])) return false;
    if (next < end && !IsBlank(*next) && *next != ',') return false;
    at = next;
  }
  return PastBlanks(at, end) == end;
}

std::string InSmallLetters(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

}  // namespace

std::string ValueToText(const trParamValue& value) {
  struct Visitor {
    std::string operator()(long v) const { return std::to_string(v); }
    std::string operator()(double v) const { return Joined({v}); }
    std::string operator()(const trVector& v) const { return Joined({v.x, v.y, v.z}); }
    std::string operator()(const tr2Vector& v) const { return Joined({v.x, v.y}); }
    std::string operator()(const trManRgb& v) const { return Joined({v.r, v.g, v.b}); }
    std::string operator()(const trString& v) const { return v; }
  };
  return std::visit(Visitor{}, value.value);
}

bool TextToValue(const std::string& text, trParamType type, trParamValue& value) {
  switch (type) {
    case trParamType::kInt: {
      long v;
      if (!ReadNumbers(text, &v, 1)) return false;
      value = trParamValue(v);
      return true;
    }
    case trParamType::kBool: {
      long v;
      if (text == "true")
        v = 1;
      else if (text == "false")
        v = 0;
      else if (!ReadNumbers(text, &v, 1) || v < 0 || v > 1)
        return false;
      value = trParamValue(v);
      return true;
    }
    case trParamType::kDouble:
    case trParamType::kFloat: {
      double v;
      if (!ReadNumbers(text, &v, 1)) return false;
      if (type == trParamType::kFloat && !std::isfinite(static_cast<float>(v))) return false;
      value = trParamValue(v);
      return true;
    }
    case trParamType::kVector: {
      double v[3];
      if (!ReadNumbers(text, v, 3)) return false;
      value = trParamValue(trVector(v[0], v[1], v[2]));
      return true;
    }
    case trParamType::kVector2: {
      double v[2];
      if (!ReadNumbers(text, v, 2)) return false;
      value = trParamValue(tr2Vector(v[0], v[1]));
      return true;
    }
    case trParamType::kColour: {
      float v[3];
      if (!ReadNumbers(text, v, 3)) return false;
      value = trParamValue(trManRgb(v[0], v[1], v[2]));
      return true;
    }
    default:
      value = trParamValue(text);
      return true;
  }
}

const std::vector<trIntHint::MenuItem>* MenuOf(const trParamInfo& param) {
  const auto* hint = param.type == trParamType::kInt ? dynamic_cast<const trIntHint*>(param.hint) : nullptr;
  return hint && !hint->Menu().empty() ? &hint->Menu() : nullptr;
}

bool TextToValue(const std::string& text, const trParamInfo& param, trParamValue& value) {
  if (TextToValue(text, param.type, value)) return true;
  const auto* const menu = MenuOf(param);
  if (!menu || text.empty()) return false;
  const std::string wanted = InSmallLetters(text);
  const trIntHint::MenuItem* begun = nullptr;
  int numBegun = 0;
  for (const trIntHint::MenuItem& item : *menu) {
    const std::string entry = InSmallLetters(item.text);
    if (entry == wanted) return value = trParamValue(item.value), true;
    if (entry.rfind(wanted, 0) != 0) continue;
    begun = &item;
    ++numBegun;
  }
  if (numBegun != 1) return false;
  value = trParamValue(begun->value);
  return true;
}

std::string DefaultText(const trParamInfo& param) {
  if (param.type != trParamType::kFloat) return ValueToText(param.defaultValue);
  std::string out;
  AppendNumber(out, static_cast<float>(std::get<double>(param.defaultValue.value)));
  return out;
}

const char* TypeName(trParamType type) {
  static constexpr const char* kNames[] = {
      "int",         "double",      "float",          "bool",
      "vector",      "vector2",     "colour",         "string",
      "file",        "node_link",   "shader_link",    "object_link",
      "planet_link", "camera_link", "sky_paint_link", "heightfield_link"};
  return kNames[static_cast<int>(type)];
}

std::string DisplayName(const trParamInfo& param) {
  if (!param.displayName.empty()) return param.displayName;
  std::string label = param.name;
  for (char& c : label)
    if (c == '_') c = ' ';
  if (!label.empty() && label[0] >= 'a' && label[0] <= 'z')
    label[0] = static_cast<char>(label[0] - 'a' + 'A');
  return label;
}

int NumComponents(trParamType type) {
  switch (type) {
    case trParamType::kInt:
    case trParamType::kDouble:
    case trParamType::kFloat:
    case trParamType::kBool:
      return 1;
    case trParamType::kVector2:
      return 2;
    case trParamType::kVector:
    case trParamType::kColour:
      return 3;
    default:
      return 0;
  }
}

}  // namespace ovhost
