#pragma once

#include <functional>
#include <utility>

#include "platform/Kavra/TimeShiftedEventLoop.h"

namespace kavratest {

// A loop whose timers come early by a factor, for tests of what takes long.
class HastyEventLoop final : public TimeShiftedEventLoop {
 public:
  HastyEventLoop(Qel::EventLoop& loop, double factor)
      : TimeShiftedEventLoop(loop), factor_(factor) {}

  // For timers from now on.
  void factorIs(double factor) { factor_ = factor; }

  Qel::Ptr<Qel::EventWatch> timerIs(double seconds, std::function<void()> call) override {
    return loop_.timerIs(seconds / factor_, std::move(call));
  }

 private:
  double factor_;
};

}  // namespace kavratest
