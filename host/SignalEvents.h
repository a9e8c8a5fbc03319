#pragma once

#include <functional>
#include <initializer_list>

#include "Kavra/FileDescriptor.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Host {

// Signals as events of the loop.
//
// From construction on, to the end of the process, they are held back, whatever the process is
// doing, and none is lost: one that comes before the loop runs is its first event. Several that
// come at once are one event.
class SignalEvents {
 public:
  // Raises std::system_error when the kernel refuses.
  explicit SignalEvents(std::initializer_list<int> signals);
  SignalEvents(const SignalEvents&) = delete;
  SignalEvents& operator=(const SignalEvents&) = delete;

  // Calls `call` for what came, while the result is held.
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> watch(Qel::EventLoop& loop,
                                                std::function<void()> call) const;

 private:
  void take() const noexcept;

  const Kavra::FileDescriptor fd_;
};

}  // namespace Host
