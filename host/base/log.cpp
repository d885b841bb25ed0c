// Messages: contexts per thread, one serialised way out of a session.
#include "host/base/log.h"

#include <cstdio>
#include <mutex>
#include <vector>

#include "core/node.h"
#include "host/base/session_context.h"

namespace {

struct Context {
  const trBase* node;
  trString name;
};
thread_local std::vector<Context> contexts;
thread_local const ovhost::ScopedPlace* place = nullptr;
thread_local ovhost::ToldErrors* innermostTold = nullptr;

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

/// Quotes and escapes for JSON; bytes below blank become \u00XX.
std::string JsonQuoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
      out += buffer;
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string Formatted(const ovhost::LogRecord& record, ovhost::LogFormat format) {
  if (format == ovhost::LogFormat::kJson) {
    std::string line = std::string("{\"level\":\"") + LevelName(record.level) + "\"";
    if (!record.node.empty()) line += ",\"node\":" + JsonQuoted(record.node);
    if (!record.parameter.empty()) line += ",\"parameter\":" + JsonQuoted(record.parameter);
    return line + ",\"text\":" + JsonQuoted(record.text) + "}\n";
  }
  std::string line;
  if (record.level != ovhost::LogLevel::kMessage) line = std::string(LevelName(record.level)) + ": ";
  if (!record.node.empty()) line += record.node + ": ";
  if (!record.parameter.empty()) line += record.parameter + ": ";
  return line + record.text + "\n";
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
  if (level < session.lowestLevel) return;
  const std::string line = Formatted(record, session.format);
  std::fwrite(line.data(), 1, line.size(), stderr);
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
