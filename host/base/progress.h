// Where the progress of long jobs goes.
#pragma once

#include "core/api.h"
#include "core/string.h"

class trBase;

namespace ovhost {

/// Progress of long jobs: returns false to stop the job.
using ProgressSink = bool (*)(void* context, const trBase* node, const trString& text, float fraction,
                              float remaining, bool canAbort);
/// That of the calling thread's session; null for nobody. Main thread only.
OV_API void SetProgressSink(ProgressSink sink, void* context);

}  // namespace ovhost
