// Errors, warnings and console lines, and the node they speak of.
#pragma once

#include "core/api.h"
#include "core/string.h"

class trBase;

/// Further data of an error: the parameter it is about, or the file that can't be read; empty where unknown.
struct trErrorWarningData {
  trString parameter;
  trString file;
};

// All of these are thread-safe. Errors and warnings go to the user's list with the path of the context's
// node.
OV_API void trError(const char* text);
OV_API void trError(const trString& text);
OV_API void trError(const trString& text, trErrorWarningData* data);
OV_API void trWarning(const char* text);
OV_API void trWarning(const trString& text);
/// To the output log only.
OV_API void trOutError(const char* text);
OV_API void trOutWarning(const trString& text);
/// A line on the console, and one on the debug console.
OV_API void trPrintMessage(const char* text);
OV_API void trPrintMessage(const trString& text);
OV_API void trPrintDebugMessage(const char* text);
OV_API void trPrintDebugMessage(const trString& text);

/// Attributes what this thread reports to `node` (and to the named parameter, where given). Returns a token
/// for trClearErrorsWarningsContext; contexts nest. Per-thread state.
OV_API long trSetupErrorsWarningsContext(const trBase* node, const trString* name);
OV_API void trClearErrorsWarningsContext(long token);

/// The same for the life of an object on the stack.
class trScopedErrorsWarningsContext {
 public:
  explicit trScopedErrorsWarningsContext(const trBase* node, const trString* name = nullptr)
      : token_(trSetupErrorsWarningsContext(node, name)) {}
  ~trScopedErrorsWarningsContext() { trClearErrorsWarningsContext(token_); }
  trScopedErrorsWarningsContext(const trScopedErrorsWarningsContext&) = delete;
  trScopedErrorsWarningsContext& operator=(const trScopedErrorsWarningsContext&) = delete;

 private:
  long token_;
};

/// Size of per-thread arrays: one more than the highest Thread() of any evaluation. Thread-safe.
OV_API int trMaxThreads();
/// Number of worker threads that long jobs should use. Thread-safe.
OV_API int trNumCoresToUse();
