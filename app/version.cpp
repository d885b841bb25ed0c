// `ov version`: the program's and the modules' interface version. Loads no module.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "core/plugin.h"

namespace ovapp {
namespace {

struct Options {
  bool json = false;
};

int Run(Program&, const Options& options) {
  if (options.json) {
    const nlohmann::ordered_json versions = {{"version", OV_VERSION}, {"sdk_version", kOvSdkVersion}};
    std::puts(versions.dump().c_str());
  } else {
    std::puts(VersionText().c_str());
  }
  return kDone;
}

}  // namespace

std::string VersionText() {
  return std::string("ov ") + OV_VERSION + " (module interface " + std::to_string(kOvSdkVersion) + ")";
}

void AddVersion(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add("version", "Print the version", "ov version --json", options, Run);
  command->add_flag("--json", options->json, "Print JSON");
}

}  // namespace ovapp
