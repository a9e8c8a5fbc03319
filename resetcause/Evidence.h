#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ResetCause {

// What a piece of evidence says of the way down. Each is one or no finding of a source; which of
// them decide what is a matter of the rules (Rules.h).
enum class Kind : unsigned char {
  panicDump,  // the kernel's last words, stored by itself: it panicked
  haltDump,   // the same of a restart, a power-off or a halt that the kernel was told to make
  softwareWatchdog,  // such a dump, whose last words are those of the software watchdog
  watchdog,          // a hardware watchdog reset the machine
  bmcWatchdog,       // the same of the management controller's, from its event log
  initCrashed,       // the journal ends with init's own end
  maker,             // what the maker's own register or command says
  request,           // somebody asked for it by our own command, and said why
  powerKey,          // the power button, shortly before
  logind,            // the login manager's record: somebody asked for it
  ctrlAltDel,        // SIGINT to init, then the reboot target
  failedUnit,        // a unit failed just before, whose failure restarts the machine
  target,            // the reboot, power-off or kexec target was reached
  journalStopped,    // the journal was closed in order
  wtmpShutdown,      // the shutdown record of wtmp
  hardwareFault,     // the watchdog's device tells of heat, a fan, or the power
  bmcRestart,        // why the management controller says it restarted, or its last power event
  kernelReason,      // why the kernel of this boot says the machine was reset
};

constexpr std::size_t kKinds = static_cast<std::size_t>(Kind::kernelReason) + 1;

// The name by which `explain` and JSON know it.
std::string_view nameOf(Kind kind) noexcept;

// Whether so many seconds since 1970 UTC are a time: from then to the end of the year 9999.
bool isTime(double seconds) noexcept;

// One piece: what was found, and where.
struct Evidence {
  Kind kind;
  std::string source;  // which source found it: "journal", "pstore", ...
  std::string place;   // the file, the record in it, the journal entry
  std::string text;    // what it says, any octets: the panic's text, the reason, the unit's name
  std::optional<double> time = {};  // seconds since 1970 UTC; absent where it tells none
  std::string user = {};            // who asked, of a request
  // Of logind, target and haltDump: "reboot", "power-off", "halt", of the first two "kexec" as
  // well.
  std::string way = {};
  // The same was there when an earlier reload was judged, and nothing tells whether it came again.
  bool isOld = false;

  friend bool operator==(const Evidence&, const Evidence&) = default;
};

}  // namespace ResetCause
