// `ov press`: presses a push button of a node and saves the project.
#include <algorithm>

#include "app/app.h"
#include "app/progress.h"
#include "app/project_options.h"
#include "app/signals.h"
#include "core/messages.h"
#include "host/base/nearest_word.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"

namespace ovapp {
namespace {

struct Options {
  ProjectOptions project;
  std::string node, button, output;
};

/// The button of that name or label.
trGuiPushButton& FindButton(const trBase& node, const std::string& wanted) {
  std::string known;
  std::vector<std::string> names;
  for (const trSheetItem& item : node.Data().sheet) {
    if (item.kind != trSheetItem::kButton || !item.button) continue;
    if (item.name == wanted || item.button->label == wanted) return *item.button;
    known += (known.empty() ? "" : ", ") + item.name;
    names.push_back(item.name);
  }
  throw Failure{kFailed, node.NameAndPath() + ": there is no button \"" + wanted + "\"; " +
                             (known.empty() ? "the node has none" : "there are " + known) +
                             ovhost::DidYouMean(wanted, names)};
}

int Run(Program& program, const Options& options) {
  const std::unique_ptr<Session> opened = OpenSession(options.project);
  Session& session = *opened;
  trBase& node = session.Find(options.node);
  trGuiPushButton& button = FindButton(node, options.button);
  if (!button.IsEnabled()) throw Failure{kFailed, node.NameAndPath() + ": the button is disabled"};
  long pressed = 0;
  ovhost::RenderControl control;
  {
    const RenderSignals signals(control);
    const Progress progress(program.common, &control.stop);
    const trScopedErrorsWarningsContext context(&node);
    pressed = button.OnPressed();
  }
  if (control.stop)
    throw Failure{128 + StopSignal(), node.NameAndPath() + ": stopped; the project is as it was"};
  if (!pressed) throw Failure{kFailed, node.NameAndPath() + ": the button did nothing"};
  const std::string& path = options.output.empty() ? options.project.path : options.output;
  const std::string problem = ovhost::SaveProject(session.Project(), path);
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
  trPrintMessage(path + ": written");
  return kDone;
}

}  // namespace

void AddPress(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("press", "Press a push button of a node and save the project",
                  "ov press scene.ovd \"Fractal terrain 01\" random_seed -o other.ovd", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_option("node", options->node, "Name or path of the node")->required();
  command->add_option("button", options->button, "Name or label of the button")->required();
  command->add_option("-o,--output", options->output, "File to save to; the project itself by default");
}

}  // namespace ovapp
