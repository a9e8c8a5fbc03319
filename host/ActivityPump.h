#pragma once

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Host {

// Has the event loop run what the process's activity manager puts off, as long as it lives.
class ActivityPump {
 public:
  // `loop` must outlive the pump.
  explicit ActivityPump(Qel::EventLoop& loop);
  ActivityPump(const ActivityPump&) = delete;
  ActivityPump& operator=(const ActivityPump&) = delete;
  ~ActivityPump();

 private:
  Qel::EventLoop& loop_;
  Qel::Ptr<Qel::EventWatch> next_;
};

}  // namespace Host
