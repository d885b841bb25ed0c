// Whom a thread works for.
#pragma once

#include <atomic>

#include "core/api.h"

namespace ovhost {
struct SessionContext;
}

/// The session that the thread which makes this works for, how many threads its work may take, and what ends
/// that work: messages, progress and colour settings belong to a session, and a process may hold several. The
/// host's loops hand it on; a node that starts threads of its own does the same:
///   std::thread([session = trThreadSession()] { const trThreadSession::Scope scope(session); ... });
/// Thread-safe.
class OV_API trThreadSession {
 public:
  /// Of the calling thread.
  trThreadSession();

  class Scope;

 private:
  void Enter() const;

  ovhost::SessionContext* context_;
  int threads_;
  const std::atomic<bool>* stop_;
};

/// While one lives, its thread works for the session. Per-thread state.
class trThreadSession::Scope {
 public:
  explicit Scope(const trThreadSession& session) { session.Enter(); }
  ~Scope() { outer_.Enter(); }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  const trThreadSession outer_;
};
