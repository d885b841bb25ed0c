// `ov nodes`: the catalogue of registered classes, and what of the planned catalogue is missing.
#include <algorithm>
#include <cstdio>

#include "app/app.h"
#include "app/json.h"
#include "host/base/log_text.h"
#include "host/node/class_pool.h"
#include "host/session/session.h"

namespace ovapp {
namespace {

struct Options {
  bool json = false, missing = false;
};

bool IsBuilt(const ovhost::PlannedRow& row) {
  const auto& built = ovhost::Catalogue();
  return std::any_of(built.begin(), built.end(), [&row](const ovhost::CatalogueEntry& entry) {
    return entry.className == row.className && entry.category == row.category;
  });
}

void Print(const Options& options, const std::string& category, const std::string& className, Json& list) {
  if (options.json)
    list.push_back({{"class", className}, {"category", category}});
  else
    std::printf("%-32s %s\n", ovhost::PrintableText(className).c_str(),
                ovhost::PrintableText(category).c_str());
}

int Run(Program&, const Options& options) {
  const int code = ovhost::LoadModules() > 0 ? kFailed : kDone;
  Json list = Json::array();
  if (options.missing) {
    for (const auto& row : ovhost::PlannedRows())
      if (!IsBuilt(row)) Print(options, row.category, row.className, list);
  } else {
    for (const auto& entry : ovhost::Catalogue()) Print(options, entry.category, entry.className, list);
  }
  if (options.json) std::fputs(JsonText(list).c_str(), stdout);
  return code;
}

}  // namespace

void AddNodes(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add("nodes", "List the node classes and their categories",
                                  "ov nodes --json | jq '.[].class'", options, Run);
  command->add_flag("--missing", options->missing, "List the planned classes that aren't built");
  command->add_flag("--json", options->json, "Print JSON");
}

}  // namespace ovapp
