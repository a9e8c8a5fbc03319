#pragma once

#include <chrono>
#include <string>

#include "Qel/Types.h"

namespace Host {

// How often an SNMPv3 engine has started (snmpEngineBoots of RFC 3414). Managers refuse an engine
// whose boots fall back, so each start counts higher than all before it.
struct EngineBoots {
  U32 count;  // 1 to 2147483647, where it stays
  std::string
      problem;  // why it may not be the highest, or not be remembered: names the file; or ""

  // Without a place to remember it: the seconds since 2020, which grow from start to start unless
  // the clock is set back, and last until 2088.
  static EngineBoots ofClock(std::chrono::sys_seconds now);
  // Counts a start: the greater of the clock's and of one more than what the file remembers, which
  // remembers the result before this returns. Begins anew where the file is not there, or damaged.
  static EngineBoots ofFile(const std::string& file, std::chrono::sys_seconds now);
};

}  // namespace Host
