// Kelpie: the messaging base of every node.
#pragma once

#include <vector>

#include "core/api.h"

namespace Kelpie {

class OV_API KPObject {
 public:
  virtual ~KPObject() = default;
};

class KPMessenger;

struct KPMessage {
  unsigned long id = 0;
  void* data = nullptr;
  KPMessenger* sender = nullptr;
};

/// Sends messages to whoever listens. Main thread only.
class OV_API KPMessenger : public KPObject {
 public:
  KPMessenger() = default;
  KPMessenger(const KPMessenger&) = delete;
  KPMessenger& operator=(const KPMessenger&) = delete;
  ~KPMessenger() override;

  /// Delivers a message to every listener, in the order they began to listen.
  void SendAMessage(unsigned long id, void* data);
  void SendAMessage(KPMessage& message);
  void ListenTo(KPMessenger* sender);
  void StopListeningTo(KPMessenger* sender);
  virtual void ReceiveAMessage(KPMessage&) {}

 private:
  std::vector<KPMessenger*> listeners_, senders_;
};

}  // namespace Kelpie

/// Posts a message to the application core's messenger. Main thread only.
OV_API void OV2SendMessageToCore(Kelpie::KPMessenger* sender, const unsigned long& id, void* data);
