#pragma once

#include <chrono>
#include <functional>

#include "Qel/PollEventLoop.h"

namespace kavratest {

// Runs the loop until `condition` holds, for at most `seconds`; returns whether it holds.
inline bool runUntil(Qel::PollEventLoop& loop, const std::function<bool()>& condition,
                     double seconds = 10.0) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    loop.runOnce(0.05);
  }
  return true;
}

}  // namespace kavratest
