// `ov test`: runs the tests of the build tree the program lies in.
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "app/app.h"

namespace ovapp {
namespace {

struct Options {
  std::vector<std::string> arguments;
};

int Run(Program&, const Options& options) {
  std::error_code error;
  const auto folder = std::filesystem::canonical("/proc/self/exe", error).parent_path();
  if (error || !std::filesystem::exists(folder / "CTestTestfile.cmake"))
    throw Failure{kBadUsage, "tests run in a build tree: use ./ov test in a checkout of the sources"};

  std::vector<std::string> words = {"ctest", "--test-dir", folder.string(), "--output-on-failure"};
  words.insert(words.end(), options.arguments.begin(), options.arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  setenv("CTEST_PARALLEL_LEVEL", std::to_string(std::thread::hardware_concurrency()).c_str(), 0);
  execvp(argv[0], argv.data());
  throw Failure{kFailed, "ctest can't be run"};
}

}  // namespace

void AddTest(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add("test", "Run the tests of this build; arguments go to ctest",
                                  "ov test -R noise", options, Run);
  command->prefix_command()->fallthrough(false);
  command->callback([&program, options, command] {
    options->arguments = command->remaining();
    program.run = [&program, options] { return Run(program, *options); };
  });
}

}  // namespace ovapp
