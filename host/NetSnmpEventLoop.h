#pragma once

#include <functional>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Host {

// The event loop of the process: net-snmp's own, with descriptors and timers of ours beside the
// agent's sockets.
//
// Descriptors go in with register_readfd and register_writefd (32 of each at most, one watch for a
// descriptor and direction), timers with snmp_alarm_register_hr. All state is net-snmp's: watches
// outlive neither the loop nor net-snmp's shutdown. Since net-snmp's frames can pass no exception
// on, one that escapes a call ends here: it is logged where the outside caused it (see
// Qel/Failure.h), and is a bug that ends the process otherwise.
class NetSnmpEventLoop final : public Qel::EventLoop {
 public:
  // Keeps net-snmp from running timers out of a signal handler. Each round ends with `afterRound`,
  // which is where to do what no descriptor and no timer will tell of; it must not raise.
  explicit NetSnmpEventLoop(std::function<void()> afterRound = [] {});
  NetSnmpEventLoop(const NetSnmpEventLoop&) = delete;
  NetSnmpEventLoop& operator=(const NetSnmpEventLoop&) = delete;

  [[nodiscard]] Qel::Ptr<Qel::EventWatch> readableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> writableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> timerIs(double seconds,
                                                  std::function<void()> call) override;

  // Serves requests, descriptors and timers until stop() was called. Raises std::system_error when
  // the loop cannot wait for events, as after somebody closed a descriptor under its watch.
  void run();
  // The same, until `done` holds at the latest, which is asked after each round.
  void runUntil(const std::function<bool()>& done);
  // Makes both return after the present round, for good.
  void stop() noexcept { running_ = false; }
  bool isRunning() const noexcept { return running_; }

 private:
  const std::function<void()> afterRound_;
  bool running_ = true;
};

}  // namespace Host
