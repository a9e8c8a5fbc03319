#pragma once

#include <functional>

#include "host/Notification.h"

namespace Host {

// A way for notifications to managers. It waits for nobody, and keeps what cannot be sent yet.
class NotificationChannel {
 public:
  // Called once one of those to be told has it, possibly from inside send(): a trap that was sent,
  // an inform that was acknowledged. Later ones to be told may follow, which call again.
  using Delivered = std::function<void(const Notification&)>;

  virtual ~NotificationChannel() = default;

  // Whether there is anybody to be told at the moment.
  virtual bool isWanted() const = 0;
  // Of what is kept about the same, the last counts.
  virtual void send(const Notification& notification) = 0;
  virtual void deliveredIs(Delivered delivered) = 0;
};

}  // namespace Host
