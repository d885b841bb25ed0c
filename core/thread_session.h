// Whom a thread works for.
#pragma once

#include "core/api.h"

namespace ovhost {
struct SessionContext;
}

/// The session that the thread which makes this works for, and how many threads its work may take: messages,
/// progress and colour settings belong to a session, and a process may hold several. The host's loops hand it
/// on; a node that starts threads of its own does the same:
///   std::thread([session = trThreadSession()] { const trThreadSession::Scope scope(session); ... });
/// Thread-safe.
class OV_API trThreadSession {
 public:
  trThreadSession();

  /// While one lives, its thread works for the session. Per-thread state.
  class OV_API Scope {
   public:
    explicit Scope(const trThreadSession& session);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    ovhost::SessionContext* const outer_;
    const int outerThreads_;
  };

 private:
  ovhost::SessionContext* context_;
  int threads_;
};
