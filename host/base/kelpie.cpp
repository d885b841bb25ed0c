// Message delivery between messengers, and the application core's messenger.
#include "core/kelpie.h"

#include <algorithm>

namespace Kelpie {

KPMessenger::~KPMessenger() {
  for (KPMessenger* listener : listeners_) std::erase(listener->senders_, this);
  for (KPMessenger* sender : senders_) std::erase(sender->listeners_, this);
}

void KPMessenger::SendAMessage(unsigned long id, void* data) {
  KPMessage message{id, data, this};
  SendAMessage(message);
}

void KPMessenger::SendAMessage(KPMessage& message) {
  const std::vector<KPMessenger*> listeners = listeners_;
  for (KPMessenger* listener : listeners)
    if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end())
      listener->ReceiveAMessage(message);
}

void KPMessenger::ListenTo(KPMessenger* sender) {
  if (!sender || std::find(senders_.begin(), senders_.end(), sender) != senders_.end()) return;
  senders_.push_back(sender);
  sender->listeners_.push_back(this);
}

void KPMessenger::StopListeningTo(KPMessenger* sender) {
  if (!sender) return;
  std::erase(senders_, sender);
  std::erase(sender->listeners_, this);
}

}  // namespace Kelpie

void OV2SendMessageToCore(Kelpie::KPMessenger* sender, const unsigned long& id, void* data) {
  static Kelpie::KPMessenger core;
  Kelpie::KPMessage message{id, data, sender};
  core.SendAMessage(message);
}
