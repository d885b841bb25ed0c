// Nodes to XML text.
#pragma once

#include <string>

#include "core/node.h"

namespace ovhost {

/// Text as the value of an attribute: marked-up characters and line breaks as references; what XML can't hold
/// (control characters, broken UTF-8) becomes '?'.
std::string EscapedAttribute(const std::string& text);
/// Appends the node's element, with its children.
void AppendNode(std::string& out, trBase* node, const std::string& element, const std::string& indent);

}  // namespace ovhost
