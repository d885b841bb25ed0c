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
/// Of each, warnings and errors, a thousand are printed; this tells how many more there were, and begins to
/// count anew: at the end of a frame, say. Thread-safe.
OV_API void TellLeftOut();
/// Errors and warnings that the session has reported. Thread-safe.
OV_API long NumErrors();
OV_API long NumWarnings();
/// Those of the errors that were about a file which can't be read. Thread-safe.
OV_API long NumFileErrors();
/// What this thread reports as errors while the object lives: whether a call that failed has told why.
class OV_API ToldErrors {
 public:
  ToldErrors();
  ~ToldErrors();
  ToldErrors(const ToldErrors&) = delete;
  ToldErrors& operator=(const ToldErrors&) = delete;
  bool Any() const { return count_ > 0; }
  /// Host side: counts an error of this thread in every such object alive.
  static void Count();

 private:
  long count_ = 0;
  ToldErrors* const outer_;
};

/// While one lives, the warnings and errors of this thread begin with a place in a file: "scene.ovd:12: ".
class OV_API ScopedPlace {
 public:
  ScopedPlace(const std::string& file, long line);
  ~ScopedPlace();
  ScopedPlace(const ScopedPlace&) = delete;
  ScopedPlace& operator=(const ScopedPlace&) = delete;
  std::string Text() const { return file_ + ":" + std::to_string(line_) + ": "; }

 private:
  const std::string& file_;
  const long line_;
  const ScopedPlace* const outer_;
};

}  // namespace ovhost
