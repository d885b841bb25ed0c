// Progress goes where the calling thread's session says.
#include "host/base/progress.h"

#include "host/base/session_context.h"

namespace ovhost {

void SetProgressSink(ProgressSink sink, void* context) {
  SessionContext& session = SessionContext::Current();
  session.progressSink = sink;
  session.progressContext = context;
}

}  // namespace ovhost
