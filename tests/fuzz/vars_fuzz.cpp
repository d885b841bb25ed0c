// Foreign text as changes of parameters: a file of --vars where it begins like JSON, else a line for each
// --set.
#include <sstream>
#include <string>

#include "host/project/project_file.h"
#include "host/session/session.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr char kProject[] =
    "<ombrivex_project><camera name=\"Camera\"/><render name=\"Render\"/><sunlight name=\"a.b\"/>"
    "<group name=\"G\"><add name=\"N\" input_a=\"/Camera\"/><add name=\"M\"/></group>"
    "<group name=\"H\"><add name=\"M\"/></group></ombrivex_project>";

/// Whether the change was made; one that can't be leaves a reason or a message.
template <typename Change>
bool Made(const Change& change) {
  const ovhost::ErrorWatch errors;
  try {
    change();
    return true;
  } catch (const ovhost::SessionError& error) {
    Check(*error.what() != 0 || errors.HasErrors());
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SilenceLog();
  Check(ovhost::LoadModules() == 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  const ovhost::Session session(ovhost::ProjectFromText(kProject, "fuzz.ovd"));
  const std::uint64_t before = session.Hash();
  if (text.find_first_of("{[") == 0) {
    Made([&] { session.AssignJson(text, "fuzz"); });
  } else {
    std::istringstream lines(text);
    bool isAnyMade = false;
    for (std::string line; std::getline(lines, line);) isAnyMade |= Made([&] { session.Assign(line); });
    Check(isAnyMade || session.Hash() == before);
  }
  return 0;
}

/// The parser of colour configurations forgets what it had read of a damaged one.
extern "C" const char* __lsan_default_suppressions() { return "leak:libyaml-cpp\n"; }
