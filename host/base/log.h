// Where the messages of a session go, stderr as text or JSON lines, and a count of the errors. All of this
// speaks of the session that the calling thread works for.
#pragma once

#include <string>

#include "core/messages.h"

namespace ovhost {

enum class LogLevel { kDebug, kMessage, kWarning, kError };
enum class LogFormat { kText, kJson };

struct LogRecord {
  LogLevel level;
  std::string node;       ///< path of the context's node, or empty
  std::string parameter;  ///< or empty
  std::string text;
};

/// Format and lowest level printed. Main thread only.
OV_API void SetLogFormat(LogFormat format);
OV_API void SetLogLevel(LogLevel level);
/// Sends records elsewhere instead of to stderr (tests, applications); null restores. Calls are serialised.
using LogSink = void (*)(void* context, const LogRecord& record);
OV_API void SetLogSink(LogSink sink, void* context);
/// Errors and warnings that the session has reported. Thread-safe.
OV_API long NumErrors();
OV_API long NumWarnings();
/// Those of the errors that were about a file which can't be read. Thread-safe.
OV_API long NumFileErrors();
/// Number of threads for renders and long jobs: `count`, or all cores for 0. Main thread only.
OV_API void SetNumThreads(int count);

}  // namespace ovhost
