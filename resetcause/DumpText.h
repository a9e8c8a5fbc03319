#pragma once

#include <string>
#include <string_view>

namespace ResetCause {

// What the kernel stored of its log when it went down: any octets.
struct DumpText {
  enum class Why {
    nothing,  // no reload: an oops that it survived, or no such text
    panic,
    restart,   // an emergency restart, or the restart, power-off or halt that ends a shutdown
    watchdog,  // such a restart by the software watchdog
  };

  Why why = Why::nothing;
  std::string text;  // of a panic what it says; of a restart the last line that tells why
  // Of a restart "reboot", "power-off" or "halt", by its last lines; empty where these are missing.
  std::string way = {};
  // Seconds from the first dump in it to that of the panic.
  double behind = 0;

  friend bool operator==(const DumpText&, const DumpText&) = default;
};

// Reads a dump, its parts joined in any order: a first line of each like "Panic#1 Part1", then
// lines of the log. A panic says more than a restart that follows it.
DumpText readDump(std::string_view text);

}  // namespace ResetCause
