// ovv_node_pack.
#include "atmosphere/ovv_node_pack.h"

namespace {

/// Text as XML holds it, in an attribute's value or between tags.
trString Escaped(const trString& text, bool isValue) {
  trString out;
  for (const char c : text) {
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '\r')
      out += "&#13;";
    else if (isValue && c == '"')
      out += "&quot;";
    else if (isValue && (c == '\n' || c == '\t'))
      out += c == '\n' ? "&#10;" : "&#9;";
    else
      out += c;
  }
  return out;
}

bool IsBlank(const trString& text) { return text.find_first_not_of(" \t\r\n") == trString::npos; }

}  // namespace

void OvvNodePackInOvd::EnteredXMLCustomData() {
  pack_.clear();
  depth_ = 0;
  isOpen_ = false;
}

void OvvNodePackInOvd::HandleXMLCustomElement(const trString& name, const char** attributes) {
  if (isOpen_) pack_ += ">";
  if (depth_ == 0 && !pack_.empty()) pack_ += "\n";
  pack_.append("<").append(name);
  for (int i = 0; attributes[i]; i += 2)
    pack_.append(" ")
        .append(attributes[i])
        .append("=\"")
        .append(Escaped(attributes[i + 1], true))
        .append("\"");
  isOpen_ = true;
  ++depth_;
}

void OvvNodePackInOvd::HandleXMLCustomElementClosed(const trString& name) {
  if (isOpen_)
    pack_ += "/>";
  else
    pack_.append("</").append(name).append(">");
  isOpen_ = false;
  --depth_;
}

void OvvNodePackInOvd::HandleXMLCustomCharacterData(const trString& text) {
  // Between packages there is nothing but the project's own layout.
  if (text.empty() || (depth_ == 0 && IsBlank(text))) return;
  if (isOpen_) pack_ += ">";
  isOpen_ = false;
  pack_ += Escaped(text, false);
}

void OvvNodePackInOvd::WriteXMLCustomData(trString indent, trString& out) {
  if (!pack_.empty()) out += indent + pack_ + "\n";
}
