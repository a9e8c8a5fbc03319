#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Qel/EventLoop.h"
#include "host/NotificationChannel.h"
#include "host/NotificationSink.h"
#include "host/SinkDirectives.h"

namespace Host {

// The sinks of this agent's own configuration. None at first.
class NotificationSinks final : public NotificationChannel {
 public:
  // `loop` must outlive the object, and net-snmp must, too.
  explicit NotificationSinks(Qel::EventLoop& loop) : loop_(loop) {}

  // These and no others. One that is there already keeps what it has to send, and begins anew.
  void sinksAre(const SinkDirectives& directives);
  const std::vector<std::unique_ptr<NotificationSink>>& sinks() const { return sinks_; }

  bool isWanted() const override { return !sinks_.empty(); }
  void send(const Notification& notification) override;
  void deliveredIs(Delivered delivered) override { delivered_ = std::move(delivered); }

 private:
  std::unique_ptr<NotificationSink> take(const SinkLine& line);

  Qel::EventLoop& loop_;
  Delivered delivered_ = [](const Notification&) {};
  std::vector<std::unique_ptr<NotificationSink>> sinks_;
};

}  // namespace Host
