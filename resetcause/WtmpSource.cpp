#include "resetcause/WtmpSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "resetcause/Wtmp.h"

namespace ResetCause {

namespace {

// The boot before may have no start there, if it was short: then the last shutdown is of an earlier
// one.
bool isOfBootBefore(double shutdown, const Boots& boots) {
  constexpr double kLater = 3600;  // seconds
  // The journal goes on for a while behind the record. Whoever beats is stopped before it, by a
  // clock that may be set between.
  const double behind = boots.hasJournal ? 300 : 2;
  if (boots.lastSign && shutdown < *boots.lastSign - behind) return false;
  if (boots.previousStart && shutdown < *boots.previousStart) return false;
  return shutdown <= boots.start || !boots.lastSign || shutdown <= *boots.lastSign + kLater;
}

std::string shutdownMark(double time) { return fmt::format("shutdown {:.6f}", time); }

}  // namespace

void WtmpSource::look(const Boots& boots, Findings& findings) const {
  const std::string path = root_.path("/var/log/wtmp");
  findings.attempt(name(), path, [&] {
    const auto records = wtmpOf(root_);
    const auto last = std::ranges::find(records.rbegin(), records.rend(),
                                        WtmpRecord::What::shutdown, &WtmpRecord::what);
    // Wherever it stands: it is known again where what was written behind it is lost.
    if (last == records.rend() || !findings.isNew(shutdownMark(last->time))) return;
    const auto before = beforeBoot(records, boots.start, boots.previousStart);
    if (!before.shutdown || !isOfBootBefore(*before.shutdown, boots)) return;
    findings.add({Kind::wtmpShutdown, "wtmp", path, "shutdown", *before.shutdown});
  });
}

}  // namespace ResetCause
