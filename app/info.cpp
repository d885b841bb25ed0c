// `ov info`: prints what a project holds.
#include <algorithm>
#include <cstdio>

#include "app/app.h"
#include "app/json.h"
#include "app/project_options.h"
#include "host/base/log_text.h"

namespace ovapp {
namespace {

struct Options {
  ProjectOptions project;
  bool json = false, values = false;
};

Json Values(trBase& node) {
  Json values = Json::object();
  for (long i = 0; i < node.NumParams(); ++i) {
    trString text;
    if (node.GetStringFromParam(i, text, trWhoSystem)) values[node.ParamName(i)] = text;
  }
  return values;
}

/// The words of a note, a line of theirs a line, behind bars.
std::string NoteLines(const std::string& words, size_t indent) {
  std::string text;
  for (size_t at = 0; at < words.size();) {
    const size_t end = std::min(words.find('\n', at), words.size());
    text += std::string(indent, ' ') + "| " + ovhost::PrintableText(words.substr(at, end - at)) + "\n";
    at = end + 1;
  }
  return text;
}

/// Lists `node` and its children. Nodes that nodes keep to themselves aren't the project's.
void List(trBase& node, const Options& options, size_t depth, Json& list, std::string& text) {
  Json entry = {{"path", node.NameAndPath()}, {"class", node.ClassName()}};
  text += std::string(2 * depth, ' ') + ovhost::PrintableText(node.Name()) + "  (" +
          ovhost::PrintableText(node.ClassName()) + ")\n";
  if (trString words; node.IsTrue("is_note") && node.GetParam("text", words)) {
    entry["note"] = words;
    text += NoteLines(words, 2 * depth + 4);
  }
  if (options.values) {
    entry["params"] = Values(node);
    for (const auto& [name, value] : entry["params"].items())
      text += std::string(2 * depth + 4, ' ') + name + " = " +
              ovhost::PrintableText(value.get<std::string>()) + "\n";
  }
  list.push_back(entry);
  for (long i = 0; i < node.NumChildren(); ++i) List(*node.Child(i), options, depth + 1, list, text);
}

int Run(Program&, const Options& options) {
  const std::unique_ptr<Session> opened = OpenSession(options.project);
  Session& session = *opened;
  Json list = Json::array();
  std::string text;
  List(session.Project(), options, 0, list, text);
  if (options.json) text = JsonText(list);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return kDone;
}

}  // namespace

void AddInfo(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("info", "List the nodes of a project", "ov info scene.ovd --values", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_flag("--values", options->values, "List the values of all parameters too");
  command->add_flag("--json", options->json, "Print JSON");
}

}  // namespace ovapp
