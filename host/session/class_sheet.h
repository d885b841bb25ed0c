// What there is to tell about a node class: its parameters, buttons, categories and facts, as plain data.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/api.h"

namespace ovhost {

struct SheetMenuItem {
  std::string text;
  long value = 0;
};

/// Limits of a parameter; what the class doesn't set is absent.
struct SheetHint {
  std::optional<double> min, max, focusValue, focusPower, doRange;
  int styleFlags = 0;  ///< of a text; 4 has several lines, or is a heading
};

struct SheetParam {
  std::string name, type, label, tab;
  std::string about;               ///< what it does, in a sentence or two
  std::string defaultText, value;  ///< in the project file's spelling
  bool isRandom = false;           ///< the default is drawn afresh for each node
  bool saved = true, hidden = false;
  SheetHint hint;
  std::vector<SheetMenuItem> menu;
};

struct SheetButton {
  std::string name, label;
};

struct ClassSheet {
  std::string className, implementation;
  std::vector<std::string> categories, facts;
  bool isShader = false;
  std::vector<SheetParam> params;
  std::vector<SheetButton> buttons;
};

/// Reads a class off a new node of it. Values are those of a node that a project names without attributes, or
/// with `asNew` those of a node made new (after its OnFirstCreate). Empty for an unknown class. Main thread
/// only.
OV_API std::optional<ClassSheet> DescribeClass(const std::string& className, bool asNew);

}  // namespace ovhost
