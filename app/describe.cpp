// `ov describe`: prints what there is to know about node classes, as text, JSON or Markdown.
#include <charconv>
#include <cstdio>

#include "app/app.h"
#include "app/json.h"
#include "core/random.h"
#include "host/base/nearest_word.h"
#include "host/node/class_pool.h"
#include "host/session/class_sheet.h"
#include "host/session/session.h"

namespace ovapp {
namespace {

using ovhost::ClassSheet;
using ovhost::SheetButton;
using ovhost::SheetHint;
using ovhost::SheetMenuItem;
using ovhost::SheetParam;

struct Options {
  std::vector<std::string> classes;
  bool all = false, asNew = false, json = false, markdown = false;
};

std::string Number(double value) {
  char buffer[32];
  return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr};
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string out;
  for (const std::string& word : words) {
    if (!out.empty()) out += between;
    out += word.empty() ? "(none)" : word;
  }
  return out;
}

/// The default as a reader wants it: texts and links in quotes, drawn ones by name.
std::string DefaultOf(const SheetParam& param) {
  if (param.isRandom) return "random";
  const bool isNumber = param.type == "int" || param.type == "double" || param.type == "float" ||
                        param.type == "bool" || param.type == "vector" || param.type == "vector2" ||
                        param.type == "colour";
  return isNumber ? param.defaultText : '"' + param.defaultText + '"';
}

/// "0 to 1", "at least 0", or empty.
std::string RangeOf(const SheetHint& hint) {
  if (hint.min && hint.max) return Number(*hint.min) + " to " + Number(*hint.max);
  if (hint.min) return "at least " + Number(*hint.min);
  if (hint.max) return "at most " + Number(*hint.max);
  return "";
}

std::string MenuOf(const SheetParam& param) {
  std::string out;
  for (const SheetMenuItem& item : param.menu) {
    if (!out.empty()) out += ", ";
    out += std::to_string(item.value) + " " + item.text;
  }
  return out;
}

// --- JSON

Json ToJson(const SheetHint& hint) {
  Json json = Json::object();
  if (hint.min) json["min"] = *hint.min;
  if (hint.max) json["max"] = *hint.max;
  if (hint.focusValue) json["focus_value"] = *hint.focusValue;
  if (hint.focusPower) json["focus_power"] = *hint.focusPower;
  if (hint.styleFlags) json["style_flags"] = hint.styleFlags;
  if (hint.doRange) json["do_range"] = *hint.doRange != 0;
  return json;
}

Json ToJson(const SheetParam& param) {
  Json menu = Json::array();
  for (const SheetMenuItem& item : param.menu) menu.push_back({{"text", item.text}, {"value", item.value}});
  return {{"name", param.name},
          {"type", param.type},
          {"default", param.defaultText},
          {"value", param.value},
          {"display_name", param.label},
          {"description", param.about},
          {"saved", param.saved},
          {"hidden", param.hidden},
          {"tab", param.tab},
          {"hint", ToJson(param.hint)},
          {"menu", menu}};
}

Json ToJson(const ClassSheet& sheet) {
  Json params = Json::array(), buttons = Json::array();
  for (const SheetParam& param : sheet.params) params.push_back(ToJson(param));
  for (const SheetButton& button : sheet.buttons)
    buttons.push_back({{"name", button.name}, {"label", button.label}});
  return {{"class", sheet.className},
          {"implementation", sheet.implementation},
          {"categories", sheet.categories},
          {"facts", sheet.facts},
          {"shader", sheet.isShader},
          {"params", params},
          {"buttons", buttons}};
}

// --- Text

/// One line a parameter, and one for what it does: the form that the catalogue in the documentation is kept
/// in.
std::string ToText(const SheetParam& param) {
  std::string line = "  " + param.name + " : " + param.type + " = " + DefaultOf(param);
  if (!param.isRandom && param.value != param.defaultText) line += " | value " + param.value;
  const std::string range = RangeOf(param.hint);
  if (!range.empty()) line += " | " + range;
  if (param.hint.focusValue) line += " | focus " + Number(*param.hint.focusValue);
  if (param.hint.focusPower) line += " | power " + Number(*param.hint.focusPower);
  line += " | " + param.label;
  if (!param.tab.empty()) line += " | tab " + param.tab;
  if (!param.menu.empty()) line += " | menu " + MenuOf(param);
  if (!param.saved) line += " | not saved";
  if (param.hidden) line += " | hidden";
  return line + "\n" + (param.about.empty() ? "" : "      " + param.about + "\n");
}

std::string ToText(const ClassSheet& sheet) {
  std::string out = sheet.className + " (" + sheet.implementation + ")\n";
  out += "  categories: " + Joined(sheet.categories, ", ") + "\n";
  if (!sheet.facts.empty()) out += "  facts: " + Joined(sheet.facts, ", ") + "\n";
  for (const SheetParam& param : sheet.params) out += ToText(param);
  for (const SheetButton& button : sheet.buttons) out += "  [" + button.label + "] " + button.name + "\n";
  return out;
}

// --- Markdown

/// Text that a table cell or a paragraph shows as it is.
std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '|' || c == '*' || c == '_' || c == '<' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string ToMarkdown(const SheetParam& param) {
  std::string notes = param.menu.empty() ? RangeOf(param.hint) : MenuOf(param);
  if (!param.saved) notes += notes.empty() ? "not saved" : "; not saved";
  if (param.hidden) notes += notes.empty() ? "hidden" : "; hidden";
  return "| `" + param.name + "` | " + Escaped(param.label) + " | " + param.type + " | " +
         Escaped(DefaultOf(param)) + " | " + Escaped(notes) + " | " + Escaped(param.about) + " |\n";
}

std::string ToMarkdown(const ClassSheet& sheet) {
  std::string out = "## " + sheet.className + "\n\n";
  out += "Class `" + sheet.implementation + "`, in " + Escaped(Joined(sheet.categories, ", ")) + ".";
  if (!sheet.facts.empty()) out += " Facts: " + Escaped(Joined(sheet.facts, ", ")) + ".";
  out += "\n";
  std::string tab;
  bool isOpen = false;
  for (const SheetParam& param : sheet.params) {
    if (!isOpen || param.tab != tab) {
      tab = param.tab;
      isOpen = true;
      if (!tab.empty()) out += "\n**" + Escaped(tab) + "**\n";
      out +=
          "\n| Parameter | Label | Type | Default | Range, menu | What it does "
          "|\n|---|---|---|---|---|---|\n";
    }
    out += ToMarkdown(param);
  }
  if (!sheet.buttons.empty()) out += "\nButtons:";
  for (const SheetButton& button : sheet.buttons)
    out += " \"" + Escaped(button.label) + "\" (`" + button.name + "`)";
  if (!sheet.buttons.empty()) out += "\n";
  return out + "\n";
}

constexpr const char* kMarkdownHead =
    "# Node reference\n\n"
    "Every built class with its parameters in declaration order, as `ov describe --markdown --all` prints "
    "it. Defaults\n"
    "are those of a parameter that a project doesn't name. `ov describe --as-new CLASS` tells the values of "
    "a node made new.\n\n";

std::string UnknownClass(const std::string& name) {
  for (const ovhost::PlannedRow& row : ovhost::PlannedRows())
    if (row.className == name) return "the class \"" + name + "\" is planned and not built yet";
  const std::string meant = ovhost::DidYouMean(name, ovhost::AllClassNames());
  return "there is no class \"" + name + "\"" + (meant.empty() ? "; `ov nodes` lists them" : meant);
}

int Run(Program& program, const Options& options) {
  const int code = ovhost::LoadModules() > 0 ? kFailed : kDone;
  // Drawn defaults are told apart by drawing twice: from a fixed seed, so that two draws are known to differ.
  if (!program.common.seed) trFixGlobalSeed(1);
  if (options.classes.empty() && !options.all)
    throw Failure{kBadUsage, "describe: name a class, or use --all"};

  Json list = Json::array();
  std::string text = options.markdown && options.all ? kMarkdownHead : "";
  for (const std::string& name : options.all ? ovhost::AllClassNames() : options.classes) {
    const std::optional<ClassSheet> sheet = ovhost::DescribeClass(name, options.asNew);
    if (!sheet) throw Failure{kFailed, UnknownClass(name)};
    if (options.json)
      list.push_back(ToJson(*sheet));
    else if (options.markdown)
      text += ToMarkdown(*sheet);
    else
      text += (text.empty() ? "" : "\n") + ToText(*sheet);
  }
  if (options.json) text = JsonText(list);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return code;
}

}  // namespace

void AddDescribe(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add("describe", "Describe node classes: parameters, defaults, ranges, menus",
                                  "ov describe power_fractal_shader_v3", options, Run);
  command->add_option("class", options->classes, "Registered names");
  command->add_flag("-a,--all", options->all, "Describe every class");
  command->add_flag("--as-new", options->asNew, "Values of a node made new, before a user's hand sets more");
  auto* json = command->add_flag("--json", options->json, "Print a JSON list");
  command->add_flag("--markdown", options->markdown, "Print Markdown, the form of docs/nodes.md")
      ->excludes(json);
}

}  // namespace ovapp
