#pragma once

#include <chrono>

namespace Host {

// Seconds from any beginning, which never go back.
inline double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace Host
