#pragma once

#include <functional>
#include <utility>

#include "Qel/PollEventLoop.h"

namespace kavratest {

// A loop whose timers come early by a factor, for tests of what takes long.
class HastyEventLoop final : public Qel::EventLoop {
 public:
  HastyEventLoop(Qel::PollEventLoop& loop, double factor) : loop_(loop), factor_(factor) {}

  // For timers from now on.
  void factorIs(double factor) { factor_ = factor; }

  Qel::Ptr<Qel::EventWatch> readableIs(int fd, std::function<void()> call) override {
    return loop_.readableIs(fd, std::move(call));
  }
  Qel::Ptr<Qel::EventWatch> writableIs(int fd, std::function<void()> call) override {
    return loop_.writableIs(fd, std::move(call));
  }
  Qel::Ptr<Qel::EventWatch> timerIs(double seconds, std::function<void()> call) override {
    return loop_.timerIs(seconds / factor_, std::move(call));
  }

 private:
  Qel::PollEventLoop& loop_;
  double factor_;
};

}  // namespace kavratest
