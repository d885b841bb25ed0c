// Messages: contexts per thread, one serialised way out of a session.
#include "host/base/log.h"

#include <cstdio>
#include <mutex>
#include <vector>

#include "core/node.h"
#include "host/base/log_text.h"
#include "host/base/session_context.h"

namespace {

struct Context {
  const trBase* node;
  trString name;
};
thread_local std::vector<Context> contexts;
thread_local const ovhost::ScopedPlace* place = nullptr;
thread_local ovhost::ToldErrors* innermostTold = nullptr;

/// What a record may take, in bytes: names and texts come from files that anybody may have made.
constexpr std::size_t kLongestText = 4096, kLongestNode = 1024, kLongestParameter = 256;
/// Warnings, and errors, that are shown before the rest is only counted.
constexpr long kMostShown = 1000;

const char* LevelName(ovhost::LogLevel level) {
  switch (level) {
    case ovhost::LogLevel::kDebug:
      return "debug";
    case ovhost::LogLevel::kMessage:
      return "message";
    case ovhost::LogLevel::kWarning:
      return "warning";
    case ovhost::LogLevel::kError:
      return "error";
  }
  return "";
}

std::string Formatted(const ovhost::LogRecord& record, ovhost::LogFormat format) {
  if (format == ovhost::LogFormat::kJson) {
    std::string line = std::string("{\"level\":\"") + LevelName(record.level) + "\"";
    if (!record.node.empty()) line += ",\"node\":" + ovhost::QuotedForJson(record.node, kLongestNode);
    if (!record.parameter.empty())
      line += ",\"parameter\":" + ovhost::QuotedForJson(record.parameter, kLongestParameter);
    return line + ",\"text\":" + ovhost::QuotedForJson(record.text, kLongestText) + "}\n";
  }
  std::string line;
  if (record.level != ovhost::LogLevel::kMessage) line = std::string(LevelName(record.level)) + ": ";
  if (!record.node.empty()) line += ovhost::PrintableText(record.node, kLongestNode) + ": ";
  if (!record.parameter.empty()) line += ovhost::PrintableText(record.parameter, kLongestParameter) + ": ";
  return line + ovhost::PrintableText(record.text, kLongestText) + "\n";
}

void Print(const ovhost::SessionContext& session, const ovhost::LogRecord& record) {
  const std::string line = Formatted(record, session.format);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

/// Whether one more of the level is shown; the first that isn't is told of. Under the lock.
bool HasRoom(ovhost::SessionContext& session, ovhost::LogLevel level) {
  if (level < ovhost::LogLevel::kWarning) return true;
  const bool isError = level == ovhost::LogLevel::kError;
  const long count = ++(isError ? session.shownErrors : session.shownWarnings);
  if (count == kMostShown + 1)
    Print(session,
          {level, {}, {}, isError ? "further errors are only counted" : "further warnings are only counted"});
  return count <= kMostShown;
}

void Report(ovhost::LogLevel level, const trString& text, const trErrorWarningData* data = nullptr) {
  ovhost::LogRecord record{level, {}, {}, text};
  if (level >= ovhost::LogLevel::kWarning && !contexts.empty()) {
    record.node = contexts.back().node ? contexts.back().node->NameAndPath() : trString();
    record.parameter = contexts.back().name;
  }
  if (level >= ovhost::LogLevel::kWarning && place) record.text = place->Text() + record.text;
  if (data && !data->parameter.empty()) record.parameter = data->parameter;
  ovhost::SessionContext& session = ovhost::SessionContext::Current();
  if (level == ovhost::LogLevel::kError) ++session.errors;
  if (level == ovhost::LogLevel::kError) ovhost::ToldErrors::Count();
  if (level == ovhost::LogLevel::kError && data && !data->file.empty()) ++session.fileErrors;
  if (level == ovhost::LogLevel::kWarning) ++session.warnings;

  const std::lock_guard lock(session.output);
  if (session.logSink) return session.logSink(session.logContext, record);
  if (level >= session.lowestLevel && HasRoom(session, level)) Print(session, record);
}

}  // namespace

void trError(const char* text) { Report(ovhost::LogLevel::kError, text); }
void trError(const trString& text) { Report(ovhost::LogLevel::kError, text); }
void trError(const trString& text, trErrorWarningData* data) { Report(ovhost::LogLevel::kError, text, data); }
void trWarning(const char* text) { Report(ovhost::LogLevel::kWarning, text); }
void trWarning(const trString& text) { Report(ovhost::LogLevel::kWarning, text); }
void trOutError(const char* text) { Report(ovhost::LogLevel::kMessage, trString("error: ") + text); }
void trOutWarning(const trString& text) { Report(ovhost::LogLevel::kMessage, "warning: " + text); }
void trPrintMessage(const char* text) { Report(ovhost::LogLevel::kMessage, text); }
void trPrintMessage(const trString& text) { Report(ovhost::LogLevel::kMessage, text); }
void trPrintDebugMessage(const char* text) { Report(ovhost::LogLevel::kDebug, text); }
void trPrintDebugMessage(const trString& text) { Report(ovhost::LogLevel::kDebug, text); }

long trSetupErrorsWarningsContext(const trBase* node, const trString* name) {
  contexts.push_back({node, name ? *name : trString()});
  return static_cast<long>(contexts.size());
}

void trClearErrorsWarningsContext(long token) {
  if (token > 0 && token <= static_cast<long>(contexts.size())) contexts.resize(token - 1);
}

namespace ovhost {

void SetLogFormat(LogFormat format) { SessionContext::Current().format = format; }
void SetLogLevel(LogLevel level) { SessionContext::Current().lowestLevel = level; }

void SetLogSink(LogSink sink, void* context) {
  SessionContext& session = SessionContext::Current();
  const std::lock_guard lock(session.output);
  session.logSink = sink;
  session.logContext = context;
}

void TellLeftOut() {
  SessionContext& session = SessionContext::Current();
  const std::lock_guard lock(session.output);
  const auto tell = [&session](LogLevel level, long& shown, const char* what) {
    if (shown > kMostShown) Print(session, {level, {}, {}, std::to_string(shown - kMostShown) + what});
    shown = 0;
  };
  tell(LogLevel::kWarning, session.shownWarnings, " more warnings were left out");
  tell(LogLevel::kError, session.shownErrors, " more errors were left out");
}

long NumErrors() { return SessionContext::Current().errors; }
long NumFileErrors() { return SessionContext::Current().fileErrors; }
long NumWarnings() { return SessionContext::Current().warnings; }

ToldErrors::ToldErrors() : outer_(innermostTold) { innermostTold = this; }
ToldErrors::~ToldErrors() { innermostTold = outer_; }
void ToldErrors::Count() {
  for (ToldErrors* told = innermostTold; told; told = told->outer_) ++told->count_;
}

ScopedPlace::ScopedPlace(const std::string& file, long line) : file_(file), line_(line), outer_(place) {
  place = this;
}
ScopedPlace::~ScopedPlace() { place = outer_; }

}  // namespace ovhost
