#include "resetcause/WtmpSource.h"

#include <string>

#include "resetcause/Wtmp.h"

namespace ResetCause {

namespace {

// The boot before may have no start there, if it was short: then the last shutdown is of an earlier
// one.
bool isOfBootBefore(double shutdown, const Boots& boots) {
  constexpr double kSlack = 5;  // seconds
  constexpr double kLater = 3600;
  constexpr double kBeforeEnd = 300;
  if (boots.lastSign && shutdown < *boots.lastSign - kBeforeEnd) return false;
  if (!boots.previousStart) return true;
  if (shutdown < *boots.previousStart - kSlack) return false;
  return shutdown <= boots.start || !boots.lastSign || shutdown <= *boots.lastSign + kLater;
}

}  // namespace

void WtmpSource::look(const Boots& boots, Findings& findings) const {
  const std::string path = root_.path("/var/log/wtmp");
  findings.attempt(name(), path, [&] {
    const auto before = beforeBoot(wtmpOf(root_), boots.start, boots.previousStart);
    if (!before.shutdown || !isOfBootBefore(*before.shutdown, boots)) return;
    findings.add({Kind::wtmpShutdown, "wtmp", path, "shutdown", *before.shutdown});
  });
}

}  // namespace ResetCause
