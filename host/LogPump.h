#pragma once

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "host/Log.h"

namespace Host {

// Has the event loop tell what a log left out, each second while there is something, as long as it
// lives; its end tells the rest.
class LogPump {
 public:
  // `log` and `loop` must outlive the pump.
  LogPump(Log& log, Qel::EventLoop& loop);
  LogPump(const LogPump&) = delete;
  LogPump& operator=(const LogPump&) = delete;
  ~LogPump();

 private:
  void arm();
  void tell();

  Log& log_;
  Qel::EventLoop& loop_;
  Qel::Ptr<Qel::EventWatch> next_;
  bool arming_ = false;
};

}  // namespace Host
