// What the subcommands share: exit codes, the options every one takes, and how each adds itself to the
// program.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace ovapp {

/// How the program ends. 128 + n is an end by signal n.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kBadUsage = 2,
  kInvalidProject = 3,  ///< or a file it needs is missing
  kOutputFailed = 4,
  kLimitReached = 5,  ///< memory or time
  kResumable = 75
};

/// Ends the subcommand with a message and a code; caught in main.
struct Failure {
  int code;
  std::string text;
};

/// Options before or after any subcommand.
struct CommonOptions {
  bool quiet = false;
  int verbosity = 0;
  std::string log = "text";
  std::string progress = "auto";
  std::optional<std::uint64_t> seed;
  std::optional<int> threads;
};

/// The program under construction: each subcommand adds itself and, when chosen on the command line, sets
/// `run`.
struct Program {
  CLI::App cli;
  CommonOptions common;
  std::function<int()> run;

  /// A new subcommand that runs `body`, whose options live in `options` as long as the program.
  template <typename Options>
  CLI::App* Add(const char* name, const char* about, const char* example, std::shared_ptr<Options> options,
                int (*body)(Program&, const Options&)) {
    CLI::App* command = cli.add_subcommand(name, about);
    command->footer(std::string("Example:\n  ") + example);
    command->callback(
        [this, options, body] { run = [this, options, body] { return body(*this, *options); }; });
    return command;
  }
};

/// "ov 1.0 (module interface 40530)".
std::string VersionText();

void AddRender(Program& program);
void AddCheck(Program& program);
void AddNew(Program& program);
void AddNodes(Program& program);
void AddDescribe(Program& program);
void AddEval(Program& program);
void AddPress(Program& program);
void AddHeightfield(Program& program);
void AddPaint(Program& program);
void AddExport(Program& program);
void AddInfo(Program& program);
void AddVersion(Program& program);
void AddTest(Program& program);

}  // namespace ovapp
