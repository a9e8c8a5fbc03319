#pragma once

#include <functional>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Host {

// SIGTERM and SIGINT as events of the loop, and SIGPIPE ignored.
//
// From construction on the two signals are held back, whatever the process is doing, and none is
// lost: one that comes before the loop runs is its first event.
class TerminationSignals {
 public:
  // Raises std::system_error when the kernel refuses.
  TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;
  ~TerminationSignals();

  // Calls `call` for each signal taken, while the result is held.
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> watch(Qel::EventLoop& loop, std::function<void()> call);

 private:
  void take() noexcept;

  int fd_ = -1;
};

}  // namespace Host
