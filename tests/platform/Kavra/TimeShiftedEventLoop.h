#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "Kavra/Redis/Link.h"
#include "Qel/EventLoop.h"

namespace kavratest {

// A loop of which only the timers are the test's own.
class TimeShiftedEventLoop : public Qel::EventLoop {
 public:
  explicit TimeShiftedEventLoop(Qel::EventLoop& loop) : loop_(loop) {}

  Qel::Ptr<Qel::EventWatch> readableIs(int fd, std::function<void()> call) override {
    return loop_.readableIs(fd, std::move(call));
  }
  Qel::Ptr<Qel::EventWatch> writableIs(int fd, std::function<void()> call) override {
    return loop_.writableIs(fd, std::move(call));
  }

 protected:
  // Whether somebody would run out of patience with a Redis server after that time.
  static bool isAlarm(double seconds) {
    constexpr double kAlarms[] = {Kavra::Redis::Link::kConnectPatience,
                                  Kavra::Redis::Link::kPatience,
                                  Kavra::Redis::Link::kStallPatience};
    return std::ranges::find(kAlarms, seconds) != std::end(kAlarms);
  }

  Qel::EventLoop& loop_;
};

}  // namespace kavratest
