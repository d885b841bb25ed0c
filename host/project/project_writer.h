// Projects and nodes to XML text.
#pragma once

#include <string>

#include "core/project.h"

namespace ovhost {

/// The project as its file's bytes.
OV_API std::string ProjectToText(juProject& project);
/// Writes beside `path`, flushes and renames. Empty, or why it failed.
OV_API std::string SaveProject(juProject& project, const std::string& path);

/// Text as the value of an attribute: marked-up characters and line breaks as references; what XML can't hold
/// (control characters, broken UTF-8) becomes '?'.
std::string EscapedAttribute(const std::string& text);
/// Appends the node's element, with its children.
void AppendNode(std::string& out, trBase* node, const std::string& element, const std::string& indent);

}  // namespace ovhost
