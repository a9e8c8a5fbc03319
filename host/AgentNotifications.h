#pragma once

#include <functional>
#include <map>
#include <utility>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "host/NotificationChannel.h"

namespace Host {

// The way through net-snmp's own: of a subagent to its master, which has the sinks; of a module to
// those of the agent that it is in. Whether there are any is not known here.
class AgentNotifications final : public NotificationChannel {
 public:
  using IsOpen = std::function<bool()>;

  static constexpr double kLookInterval = 2;  // seconds, while the way is not open

  // `loop` must outlive the object.
  AgentNotifications(Qel::EventLoop& loop, IsOpen isOpen)
      : loop_(loop), isOpen_(std::move(isOpen)) {}

  bool isWanted() const override { return true; }
  void send(const Notification& notification) override;
  void deliveredIs(Delivered delivered) override { delivered_ = std::move(delivered); }

 private:
  void sendAll();

  Qel::EventLoop& loop_;
  const IsOpen isOpen_;
  Delivered delivered_ = [](const Notification&) {};
  std::map<Notification::About, Notification> kept_;
  Qel::Ptr<Qel::EventWatch> next_;
};

}  // namespace Host
