// The program `ov`: reads the command line, runs the chosen subcommand, turns its end into an exit code.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/signals.h"
#include "core/random.h"
#include "host/base/log.h"
#include "host/base/log_text.h"
#include "host/base/memory.h"
#include "host/base/nearest_word.h"
#include "host/base/parallel.h"
#include "host/base/session_context.h"
#include "host/session/session_error.h"

namespace {

using namespace ovapp;

void AddCommonOptions(Program& program) {
  CommonOptions& common = program.common;
  program.cli.add_flag("-q,--quiet", common.quiet, "Print only warnings, errors and results");
  program.cli.add_flag("-v,--verbose", common.verbosity, "Print more of what is going on");
  program.cli.add_option("--log", common.log, "Form of the messages on stderr")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  program.cli.add_option("--progress", common.progress, "Form of the progress on stderr")
      ->check(CLI::IsMember({"auto", "bar", "lines", "json", "none"}))
      ->capture_default_str();
  program.cli.add_option("--seed", common.seed, "Seed of everything random, so that a run can be repeated");
  program.cli.add_option("--threads", common.threads, "Number of threads; all cores by default")
      ->check(CLI::Range(1, 4096));
}

void ApplyCommonOptions(const CommonOptions& common) {
  using ovhost::LogLevel;
  ovhost::SetLogFormat(common.log == "json" ? ovhost::LogFormat::kJson : ovhost::LogFormat::kText);
  ovhost::SetLogLevel(common.quiet           ? LogLevel::kWarning
                      : common.verbosity > 0 ? LogLevel::kDebug
                                             : LogLevel::kMessage);
  if (common.seed) trFixGlobalSeed(static_cast<unsigned long>(*common.seed));
  if (common.threads) ovhost::SetNumThreads(*common.threads);
}

/// The command line without numbers such as "-.5", which the option parser takes for flags: they become
/// "-0.5".
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {
    std::string text = argv[i];
    if (text.size() > 2 && text[0] == '-' && text[1] == '.' && text[2] >= '0' && text[2] <= '9')
      text.insert(1, "0");
    arguments.push_back(text);
  }
  return arguments;  // last first, as the parser wants it
}

std::vector<std::string> LongNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

/// What somebody may have meant whose command line can't be read: the first word that is no command, or the
/// first option that neither the command nor the program has.
std::string Meant(const CLI::App& cli, int argc, char** argv) {
  const std::vector<CLI::App*> chosen = cli.get_subcommands();
  std::vector<std::string> commands, options = LongNames(cli);
  for (const CLI::App* command : cli.get_subcommands({})) commands.push_back(command->get_name());
  if (!chosen.empty())
    for (const std::string& name : LongNames(*chosen[0])) options.push_back(name);
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--") break;
    if (chosen.empty() && word.rfind('-', 0) != 0)
      return "there is no command \"" + ovhost::PrintableText(word, 80) + "\"" +
             ovhost::DidYouMean(word, commands);
    const std::string name = word.substr(0, word.find('='));
    if (name.rfind("--", 0) == 0 && std::find(options.begin(), options.end(), name) == options.end())
      return "there is no option " + ovhost::PrintableText(name, 80) + ovhost::DidYouMean(name, options);
  }
  return "";
}

/// `ov help` and `ov help COMMAND`: the texts of --help.
void AddHelp(Program& program) {
  auto about = std::make_shared<std::string>();
  CLI::App* command = program.Add<std::string>(
      "help", "Tell about a command", "ov help render", about,
      [](Program& program, const std::string& name) -> int {
        const CLI::App* told = name.empty() ? &program.cli : nullptr;
        std::vector<std::string> names;
        for (const CLI::App* other : program.cli.get_subcommands({})) {
          names.push_back(other->get_name());
          if (other->get_name() == name) told = other;
        }
        if (!told)
          throw Failure{kBadUsage, "there is no command \"" + name + "\"" + ovhost::DidYouMean(name, names)};
        std::fputs(told->help().c_str(), stdout);
        return kDone;
      });
  command->add_option("command", *about, "Name of the command");
}

int CodeOf(ovhost::SessionError::Kind kind) {
  switch (kind) {
    case ovhost::SessionError::kFailed:
      return kFailed;
    case ovhost::SessionError::kBadRequest:
      return kBadUsage;
    case ovhost::SessionError::kInvalidProject:
      return kInvalidProject;
    case ovhost::SessionError::kOutputFailed:
      return kOutputFailed;
  }
  return kFailed;
}

int ReportFailure(const Failure& failure) {
  if (!failure.text.empty()) trError(failure.text);
  return failure.code;
}

/// The last word on an exception that came where nobody catches any, as on a thread that a library started.
[[noreturn]] void OnTerminate() {
  const char* why = "a library gave up";
  std::string text;
  int code = kFailed;
  try {
    if (std::current_exception()) throw;
  } catch (const std::bad_alloc&) {
    why = "out of memory";
    code = kLimitReached;
  } catch (const std::exception& error) {
    text = error.what();
    why = text.c_str();
  } catch (...) {
    why = "an exception of an unknown type";
  }
  std::fprintf(stderr, "error: the program can't go on: %s\n", why);
  _exit(code);
}

int RunCommand(Program& program) {
  try {
    ApplyCommonOptions(program.common);
    const int code = program.run();
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
      throw Failure{kOutputFailed, "standard output can't be written"};
    return code;
  } catch (const Failure& failure) {
    return ReportFailure(failure);
  } catch (const ovhost::SessionError& error) {
    return ReportFailure({CodeOf(error.Cause()), error.what()});
  } catch (const std::exception& error) {
    if (ovhost::IsForWantOfMemory(error)) return ReportFailure({kLimitReached, "out of memory"});
    return ReportFailure({kFailed, error.what()});
  } catch (...) {
    return ReportFailure({kFailed, "an exception of an unknown type"});
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::set_terminate(OnTerminate);
  InstallSignals();
  ovhost::DeepenStacks();
  // A file past the shell's limit is a failed write, which is told and cleaned up.
  std::signal(SIGXFSZ, SIG_IGN);
  Program program;
  program.cli.name("ov");
  program.cli.description("Renders planetary landscapes, and looks into what they are made of.");
  program.cli.footer(
      "Example:\n  ov render scenes/first_light.ovd -o first_light.png\n\n`ov COMMAND --help` tells more.");
  program.cli.require_subcommand(1);
  program.cli.fallthrough();
  program.cli.set_version_flag("--version", VersionText);
  AddCommonOptions(program);
  AddRender(program);
  AddCheck(program);
  AddNew(program);
  AddNodes(program);
  AddDescribe(program);
  AddEval(program);
  AddPress(program);
  AddHeightfield(program);
  AddPaint(program);
  AddExport(program);
  AddInfo(program);
  AddVersion(program);
  AddTest(program);
  AddHelp(program);

  try {
    program.cli.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.cli.exit(error);
    const std::string meant = Meant(program.cli, argc, argv);
    if (meant.empty())
      program.cli.exit(error);
    else
      std::fprintf(stderr, "%s\nRun with --help for more information.\n", meant.c_str());
    return kBadUsage;
  }

  const int code = RunCommand(program);
  ovhost::TellLeftOut();
  return code;
}
