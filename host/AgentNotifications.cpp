#include "host/AgentNotifications.h"

namespace Host {

void AgentNotifications::send(const Notification& notification) {
  kept_.insert_or_assign(notification.about(), notification);
  sendAll();
}

void AgentNotifications::sendAll() {
  if (!isOpen_()) {
    next_ = loop_.timerIs(kLookInterval, [this] { sendAll(); });
    return;
  }
  next_ = nullptr;
  while (!kept_.empty()) {
    const Notification notification = kept_.extract(kept_.begin()).mapped();
    const Variables variables = variablesOf(notification);
    if (variables) send_v2trap(variables.get());
    delivered_(notification);
  }
}

}  // namespace Host
