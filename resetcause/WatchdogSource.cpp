#include "resetcause/WatchdogSource.h"

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <utility>

#include "Qel/Number.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostStatusOctets = 4096;

// The flags of linux/watchdog.h that tell why the machine was reset.
struct Flag {
  unsigned bit;
  Kind kind;
  const char* text;
};
constexpr Flag kFlags[] = {{0x20, Kind::watchdog, "the watchdog reset the machine"},
                           {0x01, Kind::hardwareFault, "Overheated (watchdog)"},
                           {0x02, Kind::hardwareFault, "Fan failed (watchdog)"},
                           {0x10, Kind::hardwareFault, "Power too low (watchdog)"},
                           {0x40, Kind::hardwareFault, "Power too high (watchdog)"}};
constexpr unsigned kAllFlags = 0xffff;

void readStatus(const std::string& path, const std::string& device, Findings& findings) {
  const auto text = contentOf(path, kMostStatusOctets);
  if (!text) return;
  const auto status = Qel::numberOf<unsigned>(trimmed(*text));
  if (!status || *status > kAllFlags) throw SourceException("it is no status of a watchdog");
  if (*status == 0) return;
  const bool isNew = findings.isNew(fmt::format("watchdog {} {}", device, *status));
  for (const Flag& flag : kFlags) {
    if ((*status & flag.bit) == 0) continue;
    Evidence one{flag.kind, "watchdog", path, flag.text};
    one.isOld = !isNew;
    findings.add(std::move(one));
  }
}

}  // namespace

void WatchdogSource::look(const Boots& /*boots*/, Findings& findings) const {
  const std::string devices = root_.path("/sys/class/watchdog");
  findings.attempt(name(), devices, [&] {
    for (const std::string& device : namesIn(devices)) {
      const std::string path = inFolder(inFolder(devices, device), "bootstatus");
      findings.attempt(name(), path, [&] { readStatus(path, device, findings); });
    }
  });
}

}  // namespace ResetCause
